// The "Localizable.strings" parser: one `"key" = "value";` entry per line.
// Standard library only.
#pragma once

#include <map>
#include <string>

#include <localization/Parser.h>

namespace NMLOCAL {

class KVParser : public Parser
{
public:
    explicit KVParser(const char *fileName);
    ~KVParser() override;

    // Throws std::runtime_error "Could not find locale strings file for: <locale>\n"
    // when the file is missing and "Could not open <path>\n" when it cannot be
    // read. Lines that are not exactly one entry are skipped.
    void parse() override;
    // Escapes key the way the file writes it, looks it up and returns the
    // unescaped value; key itself when the table has no entry for it.
    std::string get(const std::string &key) override;
    // Whether the table holds an entry for key (escaped as in get()).
    bool contains(const std::string &key) const;

    // The file's escaping: control characters, '"' and '\' become
    // backslash sequences.
    static std::string encode(const std::string &text);
    // The reverse as lookups apply it: "\v" yields a plain 'v', and a
    // backslash before an unknown character keeps the backslash and drops
    // the character.
    static std::string decode(const std::string &text);

private:
    void parseLine(const std::string &line);

    // Keys and values exactly as written in the file, escapes undecoded.
    std::map<std::string, std::string> table;
};

} // namespace NMLOCAL

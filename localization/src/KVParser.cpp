#include <localization/KVParser.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace NMLOCAL {

namespace {

const std::string kSeparator = "\" = \"";

// Removes every character of set from both ends of text.
std::string trim(const std::string &text, const char *set)
{
    const std::string::size_type first = text.find_first_not_of(set);
    if (first == std::string::npos)
        return std::string();
    const std::string::size_type last = text.find_last_not_of(set);
    return text.substr(first, last - first + 1);
}

} // namespace

KVParser::KVParser(const char *name)
    : Parser(name)
{
}

KVParser::~KVParser() = default;

void KVParser::parse()
{
    const std::string path = directory + "/" + fileName;
    std::error_code ec;
    if (!std::filesystem::exists(path, ec))
        throw std::runtime_error("Could not find locale strings file for: " + localeName + "\n");

    std::ifstream in;
    if (!std::filesystem::is_directory(path, ec))
        in.open(path);
    if (!in.is_open())
        throw std::runtime_error("Could not open " + path + "\n");

    table.clear();
    std::string line;
    while (std::getline(in, line)) {
        // The file is text: a CR LF line end counts as LF, as a text-mode
        // read gives it on every platform. Any other CR stays in the line.
        if (!in.eof() && !line.empty() && line.back() == '\r')
            line.pop_back();
        parseLine(line);
    }
}

void KVParser::parseLine(const std::string &line)
{
    const std::string::size_type at = line.find(kSeparator);
    if (at == std::string::npos)
        return;
    if (line.find(kSeparator, at + kSeparator.size()) != std::string::npos)
        return;

    // The order matters: ';' first, then CR, then quotes. A value that ends
    // in `";` plus a stray CR therefore keeps its closing quote and ';'.
    std::string value = line.substr(at + kSeparator.size());
    value = trim(value, ";");
    value = trim(value, "\r");
    value = trim(value, "\"");
    const std::string key = trim(line.substr(0, at), "\"");

    if (!key.empty() && !value.empty())
        table[key] = value;
}

std::string KVParser::get(const std::string &key)
{
    const auto it = table.find(encode(key));
    if (it == table.end())
        return key;
    return decode(it->second);
}

bool KVParser::contains(const std::string &key) const
{
    return table.count(encode(key)) != 0;
}

std::string KVParser::encode(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '\a': out += "\\a"; break;
        case '\b': out += "\\b"; break;
        case '\t': out += "\\t"; break;
        case '\n': out += "\\n"; break;
        case '\v': out += "\\v"; break;
        case '\f': out += "\\f"; break;
        case '\r': out += "\\r"; break;
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        default: out += c; break;
        }
    }
    return out;
}

std::string KVParser::decode(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (std::string::size_type i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c != '\\' || i + 1 == text.size()) {
            out += c;
            continue;
        }
        switch (text[++i]) {
        case '\\': out += '\\'; break;
        case 'a': out += '\a'; break;
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'v': out += 'v'; break;
        default: out += '\\'; break;
        }
    }
    return out;
}

} // namespace NMLOCAL

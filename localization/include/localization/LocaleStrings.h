// Process-wide table of display texts. Every user-visible text is an English
// key looked up here and then filled printf-style, positional arguments
// ("%1$s") included.
#pragma once

#include <memory>
#include <string>

#include <localization/Parser.h>

class LocaleStrings
{
public:
    static LocaleStrings &instance();

    // Installs parser (taking ownership), sets its directory, file name and
    // locale name and parses. Throws "Parser is nil\n" (a const char*) for a
    // null parser; an exception from parse() propagates with the new parser
    // installed.
    void setParser(NMLOCAL::Parser *parser, const std::string &localeName,
                   const std::string &directory, const std::string &fileName);

    // The translation of key (or key itself), used as a printf format for the
    // arguments; cut to 998 characters. Every text goes through formatting, so a
    // literal percent sign is written "%%".
    std::string format(const char *key, ...) const
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

private:
    LocaleStrings() = default;
    std::unique_ptr<NMLOCAL::Parser> parser;
};

#include <localization/LocaleStrings.h>

#include <cstdarg>
#include <cstdio>

LocaleStrings &LocaleStrings::instance()
{
    static LocaleStrings strings;
    return strings;
}

void LocaleStrings::setParser(NMLOCAL::Parser *newParser, const std::string &localeName,
                              const std::string &directory, const std::string &fileName)
{
    if (!newParser)
        throw "Parser is nil\n";
    parser.reset(newParser);
    parser->setDirectory(directory);
    parser->setFileName(fileName);
    parser->setLocaleName(localeName);
    parser->parse();
}

std::string LocaleStrings::format(const char *key, ...) const
{
    if (!key)
        key = "";
    const std::string text = parser ? parser->get(key) : std::string(key);

    // The translation is the format, so it may reorder the arguments ("%2$s").
    char buffer[1000] = {};
    va_list args;
    va_start(args, key);
    std::vsnprintf(buffer, sizeof buffer - 1, text.c_str(), args);
    va_end(args);
    return std::string(buffer);
}

#include <localization/Parser.h>

namespace NMLOCAL {

Parser::Parser(const char *name)
    : fileName(name ? name : "")
{
}

Parser::~Parser() = default;

void Parser::setLocaleName(const std::string &name)
{
    if (&name != &localeName)
        localeName = name;
}

void Parser::setDirectory(const std::string &dir)
{
    if (&dir != &directory)
        directory = dir;
}

void Parser::setFileName(const std::string &name)
{
    if (&name != &fileName)
        fileName = name;
}

} // namespace NMLOCAL

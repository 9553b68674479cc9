// Strings-file parsers. Standard library only.
#pragma once

#include <string>

namespace NMLOCAL {

class Parser
{
public:
    explicit Parser(const char *fileName);
    virtual ~Parser();
    // Reads directory + "/" + fileName into the table; throws std::runtime_error.
    virtual void parse() = 0;
    // The decoded text for key, or key itself when there is none.
    virtual std::string get(const std::string &key) = 0;

    void setLocaleName(const std::string &name);
    void setDirectory(const std::string &dir);
    void setFileName(const std::string &name);
    const std::string &getLocaleName() const { return localeName; }

protected:
    std::string localeName;
    std::string directory;
    std::string fileName;
    int reserved = 1000;
};

} // namespace NMLOCAL

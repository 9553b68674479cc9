// Windows path conversion as pure string functions. Runs of code here never
// touch the file system, so every platform compiles and tests them.
#include <nmplatform/nmpath.h>

#include <nmplatform/nmstatus.h>
#include <nmplatform/nmstring.h>

#include <ctype.h>
#include <string.h>

#include <string>
#include <vector>

namespace {

bool isSeparator(char c) { return c == '/' || c == '\\'; }

uint32_t copyOut(const std::string &text, char *out, size_t size)
{
    if (text.size() >= size) {
        if (size > 0)
            out[0] = '\0';
        return NM_E_INSUFFICIENT_BUFFER;
    }
    memcpy(out, text.c_str(), text.size() + 1);
    return 0;
}

// The root a normalised path keeps: "//" (network), "/", "X:/", "X:" or "".
std::string takeRoot(const std::string &path, size_t *rest)
{
    size_t i = 0;
    while (i < path.size() && path[i] == '/')
        ++i;
    *rest = i;
    if (i >= 2)
        return "//";
    if (i == 1)
        return "/";
    if (path.size() >= 2 && isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':') {
        const bool slash = path.size() > 2 && path[2] == '/';
        *rest = slash ? 3 : 2;
        return slash ? path.substr(0, 2) + "/" : path.substr(0, 2);
    }
    return "";
}

std::string normalizeSegments(const std::string &slashed)
{
    size_t pos = 0;
    const std::string root = takeRoot(slashed, &pos);
    std::vector<std::string> segments;
    while (pos <= slashed.size()) {
        size_t end = slashed.find('/', pos);
        if (end == std::string::npos)
            end = slashed.size();
        const std::string seg = slashed.substr(pos, end - pos);
        pos = end + 1;
        if (seg.empty() || seg == ".")
            continue;
        if (seg == "..") {
            if (!segments.empty() && segments.back() != "..")
                segments.pop_back();
            else if (root.empty())
                segments.push_back(seg); // a relative path keeps what it can't resolve
            continue;                    // at the root of an absolute path it is dropped
        }
        segments.push_back(seg);
    }
    std::string result = root;
    for (size_t i = 0; i < segments.size(); ++i)
        result += (i ? "/" : "") + segments[i];
    return result.empty() ? "." : result;
}

// The long-path form of an absolute normalised path of 11 characters or more.
uint32_t prefixAbsolute(const char *normalized, char *out, size_t size)
{
    const bool network = normalized[0] == '/' && normalized[1] == '/' && strchr(normalized + 2, '/');
    std::string body = network ? normalized + 2 : normalized;
    // The prefixed form switches off the system's own clean-up, so do its
    // part here: no forward slashes, no trailing dots on a segment.
    std::string cleaned;
    for (size_t i = 0; i < body.size();) {
        if (body[i] == '.') {
            size_t j = i;
            while (j < body.size() && body[j] == '.')
                ++j;
            if (j == body.size())
                break;
            if (!isSeparator(body[j]))
                cleaned.append(body, i, j - i);
            i = j;
            continue;
        }
        cleaned += body[i] == '/' ? '\\' : body[i];
        ++i;
    }
    const std::string result = (network ? "\\\\?\\UNC\\" : "\\\\?\\") + cleaned;
    if (result.size() > NM_PATH_PREFIXED_MAX)
        return NM_E_INSUFFICIENT_BUFFER;
    return copyOut(result, out, size);
}

// Runs body, turning an exhausted memory into the library's error 8: nothing
// throws across the C interface.
template <typename Body>
uint32_t withoutThrowing(Body body)
{
    try {
        return body();
    } catch (...) {
        return 8;
    }
}

} // namespace

extern "C" int nm_path_is_url(const char *path)
{
    if (!path)
        return 0;
    const char *colon = strchr(path, ':');
    const char *slash = strchr(path, '/');
    if (!colon || !slash || slash != colon + 1 || colon[2] != '/')
        return 0;
    if (colon - path < 2 || !isalpha(static_cast<unsigned char>(path[0])))
        return 0;
    for (const char *p = path; p < colon; ++p) {
        if (!isalnum(static_cast<unsigned char>(*p)) && *p != '+' && *p != '-' && *p != '.')
            return 0;
    }
    return 1;
}

extern "C" int nm_path_is_absolute(const char *path)
{
    if (!path)
        return 0;
    while (*path == ' ')
        ++path;
    if (isSeparator(path[0]))
        return 1;
    return isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':' && isSeparator(path[2]);
}

extern "C" uint32_t nm_path_normalize(const char *path, char *out, size_t size)
{
    if (!out || size == 0)
        return 22;
    out[0] = '\0';
    if (!path || !*path)
        return 0;
    if (strchr(path, '\n'))
        return 22;
    return withoutThrowing([&] {
        if (strncmp(path, "vext://", 7) == 0 || nm_path_is_url(path))
            return copyOut(path, out, size);
        std::string slashed(path);
        for (char &c : slashed) {
            if (c == '\\')
                c = '/';
        }
        return copyOut(normalizeSegments(slashed), out, size);
    });
}

extern "C" uint32_t nm_path_prefix(const char *normalized, char *out, size_t size)
{
    if (!normalized || !out || size == 0)
        return 22;
    const size_t len = strlen(normalized);
    if (len < 11 || !nm_path_is_absolute(normalized)) {
        if (len >= size) {
            out[0] = '\0';
            return NM_E_INSUFFICIENT_BUFFER;
        }
        memcpy(out, normalized, len + 1);
        return 0;
    }
    return withoutThrowing([&] { return prefixAbsolute(normalized, out, size); });
}

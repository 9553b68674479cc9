#include <nmplatform/nmpath.h>

#include <nmplatform/nmstatus.h>

#include <memory>
#include <new>

namespace {

// Decodes one UTF-8 code point at s; 0 on malformed input (overlong forms,
// surrogates and values past U+10FFFF included).
size_t decode(const unsigned char *s, uint32_t *cp)
{
    if (s[0] < 0x80) {
        *cp = s[0];
        return 1;
    }
    size_t n;
    uint32_t min;
    if ((s[0] & 0xE0) == 0xC0) { n = 2; min = 0x80; *cp = s[0] & 0x1F; }
    else if ((s[0] & 0xF0) == 0xE0) { n = 3; min = 0x800; *cp = s[0] & 0x0F; }
    else if ((s[0] & 0xF8) == 0xF0) { n = 4; min = 0x10000; *cp = s[0] & 0x07; }
    else return 0;
    for (size_t i = 1; i < n; ++i) {
        if ((s[i] & 0xC0) != 0x80)
            return 0;
        *cp = (*cp << 6) | (s[i] & 0x3F);
    }
    if (*cp < min || *cp > 0x10FFFF || (*cp >= 0xD800 && *cp <= 0xDFFF))
        return 0;
    return n;
}

} // namespace

extern "C" uint32_t nm_path_utf8_to_utf16(const char *in, uint16_t *out, size_t size, size_t *units)
{
    if (units)
        *units = 0;
    if (!in || !out || size == 0)
        return 22;
    out[0] = 0;
    const unsigned char *s = reinterpret_cast<const unsigned char *>(in);
    size_t n = 0;
    while (*s) {
        uint32_t cp;
        const size_t used = decode(s, &cp);
        if (!used)
            return NM_E_ILLEGAL_UTF;
        const size_t need = cp >= 0x10000 ? 2 : 1;
        if (n + need >= size) {
            out[0] = 0;
            return NM_E_INSUFFICIENT_BUFFER;
        }
        if (need == 2) {
            cp -= 0x10000;
            out[n++] = static_cast<uint16_t>(0xD800 | (cp >> 10));
            out[n++] = static_cast<uint16_t>(0xDC00 | (cp & 0x3FF));
        } else {
            out[n++] = static_cast<uint16_t>(cp);
        }
        s += used;
    }
    out[n] = 0;
    if (units)
        *units = n;
    return 0;
}

extern "C" uint32_t nm_path_to_windows(const char *path, uint16_t *out, size_t size)
{
    // Two path buffers are too large for the stack of every thread.
    std::unique_ptr<char[]> normalized(new (std::nothrow) char[NM_PATH_MAX]);
    std::unique_ptr<char[]> prefixed(new (std::nothrow) char[NM_PATH_PREFIXED_MAX + 1]);
    if (!normalized || !prefixed)
        return 8;
    uint32_t rc = nm_path_normalize(path, normalized.get(), NM_PATH_MAX);
    if (rc == 0)
        rc = nm_path_prefix(normalized.get(), prefixed.get(), NM_PATH_PREFIXED_MAX + 1);
    if (rc == 0)
        rc = nm_path_utf8_to_utf16(prefixed.get(), out, size, nullptr);
    return rc;
}

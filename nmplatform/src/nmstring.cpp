#include <nmplatform/nmstring.h>

#include <nmplatform/nmlog.h>
#include <nmplatform/nmstatus.h>

#include <string.h>

#define NM_LOG_SOURCE "nmplatform/src/nmstring"

namespace {

// Length of the UTF-8 sequence a lead byte announces (1 for ASCII).
size_t sequenceLength(unsigned char lead)
{
    if (lead < 0xC0) return 1;
    if (lead <= 0xDF) return 2;
    if (lead <= 0xEF) return 3;
    if (lead <= 0xF7) return 4;
    if (lead <= 0xFB) return 5;
    return 6;
}

// Drops a multi-byte sequence left incomplete at the end of dst[0, len).
size_t trimIncompleteSequence(char *dst, size_t len)
{
    size_t lead = len;
    while (lead > 0 && (static_cast<unsigned char>(dst[lead - 1]) & 0xC0) == 0x80)
        --lead;
    if (lead == 0)
        return len; // only continuation bytes: nothing to anchor on
    --lead;
    const unsigned char byte = static_cast<unsigned char>(dst[lead]);
    if (byte < 0x80)
        return len;
    if (sequenceLength(byte) != len - lead)
        len = lead;
    dst[len] = '\0';
    return len;
}

} // namespace

extern "C" uint32_t nm_strlcat(char *dst, const char *src, size_t size, size_t *len)
{
    size_t local = 0;
    size_t *pos = len ? len : &local;
    if (!dst || !src || *pos >= size) {
        NM_LOG(NM_LOG_WARN, "Warning: nm_str_to failure, args %p %p %zu %zu '%s'", (void *)dst,
               (const void *)src, size, *pos, src ? src : "(nil)");
        if (dst && size > 0)
            dst[0] = '\0';
        return 22;
    }
    const size_t room = size - *pos - 1;
    const size_t srcLen = strnlen(src, room + 1);
    const size_t n = srcLen <= room ? srcLen : room;
    memcpy(dst + *pos, src, n);
    *pos += n;
    dst[*pos] = '\0';
    if (srcLen <= room)
        return 0;
    *pos = trimIncompleteSequence(dst, *pos);
    return NM_E_INSUFFICIENT_BUFFER;
}

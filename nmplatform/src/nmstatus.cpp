#include <nmplatform/nmstatus.h>

#include <stdio.h>
#include <string.h>

namespace {

const char *tableText(uint32_t code)
{
    switch (code) {
#define NM_STATUS_CASE(name, code, text) case code: return text;
        NM_STATUS_MAP(NM_STATUS_CASE)
#undef NM_STATUS_CASE
    default:
        return nullptr;
    }
}

// glibc offers two strerror_r flavours; these overloads accept either.
[[maybe_unused]] const char *pick(int rc, const char *buf) { return rc == 0 ? buf : nullptr; }
[[maybe_unused]] const char *pick(const char *text, const char *) { return text; }

} // namespace

extern "C" const char *nm_status_text(uint32_t code, char *buf, size_t size)
{
    if (const char *text = tableText(code))
        return text;
    if (!buf || size == 0)
        return "N/A";
    snprintf(buf, size, "%s", "N/A");
    char local[1024] = "N/A";
    const char *text = pick(strerror_r(static_cast<int>(code), local, sizeof local), local);
    if (text && *text)
        snprintf(buf, size, "%s", text);
    return buf;
}

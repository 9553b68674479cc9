#include <memory_scan/MemoryScan.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif

namespace memory_scan {

namespace {

const size_t kChunk = size_t(1) << 20;
// Longer than the widest spread-out copy, so none is cut by a chunk's end.
const size_t kOverlap = 4096;
const size_t kMaxStride = 64;
// Larger mappings are reservations, not data (none of the program's own).
const uint64_t kMaxRegion = uint64_t(64) << 30;

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer's shadow memory on x86-64 Linux, low and high together.
const uint64_t kShadowBegin = 0x00007fff8000ull;
const uint64_t kShadowEnd = 0x10007fff8000ull;
#else
const uint64_t kShadowBegin = 0;
const uint64_t kShadowEnd = 0;
#endif

uint8_t randomByte()
{
    uint8_t byte = 0;
    while (getrandom(&byte, 1, 0) != 1) {
    }
    return byte;
}

struct Region {
    uint64_t begin;
    uint64_t end;
};

std::vector<Region> readableRegions()
{
    std::vector<Region> regions;
    FILE *maps = std::fopen("/proc/self/maps", "re");
    if (!maps)
        return regions;
    char line[4096];
    while (std::fgets(line, sizeof line, maps)) {
        unsigned long long begin = 0, end = 0;
        char perms[5] = {};
        if (std::sscanf(line, "%llx-%llx %4s", &begin, &end, perms) != 3 || perms[0] != 'r')
            continue;
        if ((begin < kShadowEnd && end > kShadowBegin) || end - begin > kMaxRegion)
            continue;
        regions.push_back({begin, end});
    }
    std::fclose(maps);
    return regions;
}

} // namespace

Secret::Secret()
{
    static const char alphabet[] = "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    const unsigned marks[] = {0xA4, 0xDF, 0xE7}; // ¤ ß ç
    auto add = [](Needle &needle, uint8_t byte) {
        const uint8_t key = randomByte();
        needle.key.push_back(key);
        needle.masked.push_back(byte ^ key);
    };
    for (int i = 0; i < 24; ++i) {
        const unsigned c = i % 8 == 0 ? marks[i / 8]
                                      : uint8_t(alphabet[randomByte() % (sizeof alphabet - 1)]);
        if (c < 0x80) {
            add(m_utf8, uint8_t(c));
        } else {
            add(m_utf8, uint8_t(0xC0 | (c >> 6)));
            add(m_utf8, uint8_t(0x80 | (c & 0x3F)));
        }
        add(m_utf16, uint8_t(c));
        add(m_utf16, 0);
    }
}

void Secret::reveal(const std::function<void(const char *utf8)> &use) const
{
    char plain[64] = {};
    for (size_t i = 0; i < m_utf8.masked.size(); ++i)
        plain[i] = char(m_utf8.masked[i] ^ m_utf8.key[i]);
    use(plain);
    explicit_bzero(plain, sizeof plain);
}

bool Secret::revealInChild(const std::function<bool(const char *utf8)> &work) const
{
    bool done = false;
    reveal([&](const char *utf8) { done = inChild([&] { return work(utf8); }); });
    return done;
}

// Whether the needle's units stand at p, one every stride bytes; a unit is
// one byte of UTF-8 or two of UTF-16.
bool Secret::Needle::at(const uint8_t *p, size_t stride, size_t unit) const
{
    for (size_t i = 0; i < masked.size(); ++i) {
        if (uint8_t(p[(i / unit) * stride + i % unit] ^ key[i]) != masked[i])
            return false;
    }
    return true;
}

size_t Secret::Needle::span(size_t stride, size_t unit) const
{
    return (masked.size() / unit - 1) * stride + unit;
}

// Counts the copies that begin in the first countable bytes of data, the
// memory read from address; those inside data itself are its own reading.
void Secret::search(const uint8_t *data, size_t size, size_t countable, uint64_t address,
                    Copies *copies) const
{
    const uint64_t own = uintptr_t(data);
    const struct {
        const Needle &needle;
        size_t unit;
    } forms[] = {{m_utf8, 1}, {m_utf16, 2}};
    for (const auto &form : forms) {
        const uint8_t first = form.needle.masked[0] ^ form.needle.key[0];
        for (const uint8_t *p = data; (p = static_cast<const uint8_t *>(
                                           std::memchr(p, first, size_t(data + countable - p))));
             ++p) {
            const uint64_t where = address + uint64_t(p - data);
            if (where >= own && where < own + kChunk)
                continue;
            for (size_t stride = form.unit; stride <= (form.unit == 1 ? 1 : kMaxStride); stride += 2) {
                if (size_t(data + size - p) < form.needle.span(stride, form.unit)
                    || !form.needle.at(p, stride, form.unit))
                    continue;
                int &hits = form.unit == 1 ? copies->utf8 : stride == 2 ? copies->utf16 : copies->spread;
                ++hits;
            }
        }
    }
}

Secret::Copies Secret::find() const
{
    Copies copies;
    // A mapping of its own, so the chunks read never land in the heap that
    // is searched, and leave nothing behind once unmapped.
    void *mapped = mmap(nullptr, kChunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        copies.error = std::string("cannot map a buffer: ") + std::strerror(errno);
        return copies;
    }
    auto *buffer = static_cast<uint8_t *>(mapped);
    const int fd = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        copies.error = std::string("cannot open /proc/self/mem: ") + std::strerror(errno);
    } else {
        for (const Region &region : readableRegions()) {
            for (uint64_t at = region.begin; at < region.end; at += kChunk - kOverlap) {
                const size_t want = size_t(std::min<uint64_t>(kChunk, region.end - at));
                const ssize_t got = pread(fd, buffer, want, off_t(at));
                if (got <= 0)
                    continue; // unreadable after all, such as [vvar]
                const bool last = at + uint64_t(got) >= region.end || size_t(got) < want;
                const size_t countable = last ? size_t(got) : kChunk - kOverlap;
                search(buffer, size_t(got), countable, at, &copies);
                if (size_t(got) < want)
                    break;
            }
        }
        close(fd);
    }
    munmap(mapped, kChunk);
    return copies;
}

bool inChild(const std::function<bool()> &work)
{
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        return false;
    if (pid == 0)
        _exit(work() ? 0 : 1);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace memory_scan

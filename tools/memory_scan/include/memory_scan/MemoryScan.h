// Copies of a passphrase in the memory of this process, for tests that prove
// the program leaves none behind once it no longer needs it.
//
// The search reads every readable mapping of /proc/self/maps through
// /proc/self/mem, so freed blocks that were never overwritten count too.
// Mappings that cannot be read are passed over; under AddressSanitizer its
// shadow memory (terabytes of bookkeeping, never program data) is left out.
// A process that made itself non-dumpable may be unable to open
// /proc/self/mem: the program does so at start-up, the libraries never, so
// tests that link them can search.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace memory_scan {

// A passphrase made at run time, distinctive enough that no other bytes in
// memory look like it: Latin-1 letters outside ASCII (so its UTF-8 and
// UTF-16 forms differ from any ASCII text), and random letters and digits.
// This process holds it in the clear only inside reveal(); otherwise it is
// kept masked, so a search finds the program's copies, never the test's.
class Secret
{
public:
    Secret();
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;

    // Calls use with the passphrase as NUL-terminated UTF-8, and overwrites
    // that copy afterwards. What use makes of it is its own to wipe.
    void reveal(const std::function<void(const char *utf8)> &use) const;
    // Calls work with the passphrase in a forked child (see inChild), for
    // work whose copies must never exist in this process, such as writing
    // the envelopes that it opens. True when work returned true.
    bool revealInChild(const std::function<bool(const char *utf8)> &work) const;

    struct Copies {
        int utf8 = 0;
        int utf16 = 0;
        // UTF-16 characters in order at a constant distance of 4 to 64
        // bytes: one character in each record of an array.
        int spread = 0;
        // Why the search could not run; empty when it did.
        std::string error;
        // The search ran and found no copy of any form.
        bool none() const { return error.empty() && utf8 == 0 && utf16 == 0 && spread == 0; }
    };
    // Searches the readable memory of this process.
    Copies find() const;

private:
    // A form of the passphrase and its mask: byte i is masked[i] ^ key[i].
    struct Needle {
        std::vector<uint8_t> masked;
        std::vector<uint8_t> key;
        bool at(const uint8_t *p, size_t stride, size_t unit) const;
        size_t span(size_t stride, size_t unit) const;
    };
    void search(const uint8_t *data, size_t size, size_t countable, uint64_t address,
                Copies *copies) const;

    Needle m_utf8;
    Needle m_utf16;
};

// Runs work in a forked child and waits for it: true when work returned true.
// For work whose copies of a passphrase must not stay in this process, such
// as writing the envelopes that it opens.
bool inChild(const std::function<bool()> &work);

} // namespace memory_scan

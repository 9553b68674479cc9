// The pure trailer walk over hand-made tails: every malformed shape answers
// with "corrupt", valid ones give the main record and the slots in file order.
#include "CryptoTestSupport.h"
#include "nmtrailer.h"

#include "envelope_writer/EnvelopeWriter.h"

#include <cstring>

using namespace nmtest;
namespace ew = envelope_writer;

namespace {

std::string be(uint64_t v, int bytes) {
  std::string out;
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<char>(v >> (8 * i)));
  return out;
}

std::string record(uint16_t tag, uint16_t lengthWord, size_t bodyBytes = 0,
                   uint32_t magic = ew::kMagicV1) {
  return std::string(bodyBytes, '\x11') + be(tag, 2) + be(lengthWord, 2) + be(magic, 4);
}

std::string mainRecord(uint64_t length = 5) {
  ew::EnvelopeOptions opts;
  return ew::buildTrailer(length, "p", opts);
}

struct WalkCase {
  const char *name;
  std::string tail;
  uint32_t rc;
  std::vector<uint32_t> slots;  // expected offsets of the wrapped keys, in try order
};

std::vector<WalkCase> walkCases() {
  const std::string m = mainRecord();
  std::string manySlots = m;
  for (int i = 0; i < 1009; ++i) manySlots += record(ew::kTagKeySlot, 8);
  std::string tooMany = m;
  for (int i = 0; i < 1025; ++i) tooMany += record(ew::kTagKeySlot, 8);
  std::string v2 = m;
  v2.replace(116, 4, be(ew::kMagicV2, 4));
  std::string flagged = m;
  flagged.replace(114, 2, be(0x8078, 2));
  std::string len121 = std::string(1, 'x') + m;
  len121.replace(115, 2, be(121, 2));
  std::string tag8107 = m;
  tag8107.replace(112, 2, be(ew::kTagKeySlot, 2));
  std::vector<uint32_t> many(1010, 24);
  for (uint32_t i = 1; i < many.size(); ++i) many[i] = 120 + (i - 1) * 8;
  return {
      {"main record alone", m, 0, {24}},
      {"junk before the main record", std::string(3000, '\x7f') + m, 0, {3024}},
      {"one byte short", m.substr(1), 2, {}},
      {"empty tail", "", 2, {}},
      {"no magic at the end", m + "12345678", 2, {}},
      {"version 2 magic", v2, 0, {24}},
      {"flag bit in the length word", flagged, 0, {24}},
      {"main record length 121", len121, 2, {}},
      {"slot tag where the main tag belongs", tag8107, 2, {}},
      {"record length 0", m + record(0x1234, 0), 2, {}},
      {"record length 7", m + record(0x1234, 7), 2, {}},
      {"flag bit alone is length 0", m + record(0x1234, 0x8000), 2, {}},
      {"length past the tail's start", m + record(0x1234, 500, 292), 2, {}},
      {"last stepped record too close to the end",
       std::string(200, '\0') + record(0x1234, 16, 8), 2, {}},
      {"walk stops 8 bytes past the start", record(0x1234, 8) + record(0x1234, 8), 2, {}},
      {"slots and unknown records in file order",
       m + record(ew::kTagKeySlot, 24, 16) + record(0x0042, 40, 32) +
           record(ew::kTagKeySlot, 0x8000 | 32, 24),
       0, {24, 120, 184}},
      {"8-byte slot at the very end", m + record(ew::kTagKeySlot, 8), 0, {24, 120}},
      {"every 8-byte slot an 8 KiB tail holds", manySlots, 0, many},
      {"more slots than the list holds", tooMany, 2, {}},
  };
}

void testWalkTable() {
  for (const WalkCase &c : walkCases()) {
    nm_trailer_t out;
    // A heap copy of exactly the tail's size, so the sanitizer sees any overread.
    std::vector<uint8_t> tail(c.tail.begin(), c.tail.end());
    uint32_t rc = nm_trailer_walk(tail.data(), tail.size(), &out);
    CHECK_EQ(rc, c.rc, c.name);
    if (rc != 0 || c.rc != 0) continue;
    CHECK_EQ(out.slot_count, c.slots.size(), c.name);
    for (size_t i = 0; i < c.slots.size() && i < out.slot_count; ++i)
      CHECK_EQ(out.slots[i], c.slots[i], c.name);
    CHECK_EQ(out.main.length, 5u, c.name);
  }
}

void testMainFields() {
  ew::EnvelopeOptions opts;
  opts.iv = std::string(16, '\x01');
  opts.salt = std::string(16, '\x02');
  opts.saltTail = std::string(16, '\x03');
  opts.opaque = std::string(16, '\x04');
  opts.fields[0] = 0xFFFE;
  opts.fields[3] = 0x0102;
  std::string t = ew::buildTrailer(0x0102030405060708ull, "p", opts);
  nm_trailer_t out;
  CHECK_EQ(nm_trailer_walk(reinterpret_cast<const uint8_t *>(t.data()), t.size(), &out), 0u,
           "walk");
  CHECK_EQ(out.main.length, 0x0102030405060708ull, "length is big-endian");
  CHECK(std::memcmp(out.main.iv, opts.iv.data(), 16) == 0, "iv");
  CHECK(std::memcmp(out.main.salt, opts.salt.data(), 16) == 0, "salt");
  CHECK(std::memcmp(out.main.salt + 16, opts.saltTail.data(), 16) == 0, "salt tail");
  CHECK(std::memcmp(out.main.opaque, opts.opaque.data(), 16) == 0, "opaque field");
  CHECK_EQ(out.main.field0, 0xFFFEu, "first field widened");
  CHECK_EQ(out.main.fields[2], 0x0102u, "last field");
}

}  // namespace

int main() {
  return runCases({{"walk table", testWalkTable},
                   {"main record fields", testMainFields}});
}

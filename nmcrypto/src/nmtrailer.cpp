#include "nmtrailer.h"

#include <string.h>

namespace {

const uint32_t kCorrupt = 2;
const size_t kFooter = 8;

uint16_t be16(const uint8_t *p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }

uint32_t be32(const uint8_t *p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | p[3];
}

uint64_t be64(const uint8_t *p) {
  return (static_cast<uint64_t>(be32(p)) << 32) | be32(p + 4);
}

bool knownMagic(uint32_t magic) {
  return magic == NM_TRAILER_MAGIC_V1 || magic == NM_TRAILER_MAGIC_V2;
}

// Bits 0 to 14; bit 15 is a flag the reader ignores.
size_t recordLength(const uint8_t *footer) { return be16(footer + 2) & 0x7FFFu; }

void readMain(const uint8_t *p, nm_main_record_t *m) {
  m->length = be64(p);
  memcpy(m->iv, p + 8, 16);
  memcpy(m->wrapped_key, p + 24, 16);
  memcpy(m->key_check, p + 40, 16);
  memcpy(m->salt, p + 56, 32);
  memcpy(m->opaque, p + 88, 16);
  m->field0 = be16(p + 104);
  for (int i = 0; i < 3; ++i) m->fields[i] = be16(p + 106 + 2 * i);
  m->length_word = be16(p + 114);
  m->magic = be32(p + 116);
}

// Steps back over records from the tail's end. On success *start is the
// start of the last record stepped over and out->slots[1..] hold the slot
// records in walk order.
uint32_t stepBack(const uint8_t *tail, size_t size, nm_trailer_t *out, size_t *start) {
  size_t pos = size;
  unsigned previousTag = 0;
  while (previousTag != NM_TRAILER_TAG_MAIN && pos > kFooter) {
    const uint8_t *footer = tail + pos - kFooter;
    if (!knownMagic(be32(footer + 4))) break;
    size_t length = recordLength(footer);
    if (length < kFooter || length > pos) return kCorrupt;  // would stand still or leave the tail
    pos -= length;
    previousTag = be16(footer);
    if (previousTag == NM_TRAILER_TAG_SLOT) {
      if (out->slot_count >= NM_TRAILER_MAX_SLOTS) return kCorrupt;
      out->slots[1 + out->slot_count++] = static_cast<uint32_t>(pos);
    }
  }
  if (pos == size) return kCorrupt;  // no record ends the tail
  *start = pos;
  return 0;
}

}  // namespace

uint32_t nm_trailer_walk(const uint8_t *tail, size_t size, nm_trailer_t *out) {
  memset(out, 0, sizeof *out);
  if (!tail || size > UINT32_MAX) return kCorrupt;
  size_t start = 0;
  uint32_t rc = stepBack(tail, size, out, &start);
  if (rc != 0) return rc;
  if (size - start < NM_TRAILER_MAIN_LENGTH) return kCorrupt;  // no room for a main record
  const uint8_t *main = tail + start;
  const uint8_t *footer = main + NM_TRAILER_MAIN_LENGTH - kFooter;
  if (be16(footer) != NM_TRAILER_TAG_MAIN || recordLength(footer) != NM_TRAILER_MAIN_LENGTH ||
      !knownMagic(be32(footer + 4)))
    return kCorrupt;
  readMain(main, &out->main);
  out->main_offset = start;
  // Try order is file order: the main record's slot, then the slot records
  // from the lowest offset up (the walk found them highest first).
  uint32_t *records = out->slots + 1;
  for (uint32_t i = 0, j = out->slot_count; i + 1 < j; ++i, --j) {
    uint32_t t = records[i];
    records[i] = records[j - 1];
    records[j - 1] = t;
  }
  out->slots[0] = static_cast<uint32_t>(start + 24);
  out->slot_count += 1;
  return 0;
}

void nm_trailer_slot(const uint8_t *tail, size_t size, const nm_trailer_t *trailer, uint32_t i,
                     uint8_t key[16]) {
  memset(key, 0, 16);
  if (i >= trailer->slot_count || trailer->slots[i] >= size) return;
  size_t at = trailer->slots[i];
  memcpy(key, tail + at, size - at < 16 ? size - at : 16);
}

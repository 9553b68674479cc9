// Fuzz target: the pure trailer walk over arbitrary tails, then every slot
// it reports is read back.
#include "nmtrailer.h"

#include <stdlib.h>

#include <string>

std::string g_outcome;  // what the walk found, for the replay's expectations

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static nm_trailer_t trailer;  // 4 KiB: kept off the stack
  const uint32_t rc = nm_trailer_walk(data, size, &trailer);
  g_outcome = std::to_string(rc);
  if (rc != 0) return 0;
  if (trailer.slot_count == 0 || trailer.slot_count > NM_TRAILER_MAX_SLOTS + 1 ||
      trailer.main_offset + NM_TRAILER_MAIN_LENGTH > size)
    abort();  // a success must describe a main record inside the tail
  g_outcome += " main@" + std::to_string(trailer.main_offset) + " L=" +
               std::to_string(trailer.main.length) + " f0=" + std::to_string(trailer.main.field0) +
               " slots";
  uint8_t key[16];
  for (uint32_t i = 0; i < trailer.slot_count; ++i) {
    if (trailer.slots[i] >= size) abort();
    nm_trailer_slot(data, size, &trailer, i, key);
    g_outcome += ' ' + std::to_string(trailer.slots[i]);
  }
  return 0;
}

/* The trailer walk: finds the main record and the key slots in the tail of
 * an envelope (or side file). A pure function over the tail bytes: it reads
 * nothing outside them, takes at most one step per 8 bytes and answers every
 * input with a result code. */
#ifndef NMCRYPTO_NMTRAILER_H
#define NMCRYPTO_NMTRAILER_H

#include <stddef.h>
#include <stdint.h>

#define NM_TRAILER_TAIL_MAX 8192u
#define NM_TRAILER_MAIN_LENGTH 120u
#define NM_TRAILER_TAG_MAIN 0x8106u
#define NM_TRAILER_TAG_SLOT 0x8107u
#define NM_TRAILER_MAGIC_V1 0xB10BB10Bu
#define NM_TRAILER_MAGIC_V2 0xB20BB20Bu

/* Every slot record of an 8,192-byte tail fits: (8192 - 120) / 8 = 1009
 * records of the minimum length, plus the main record's own slot. */
#define NM_TRAILER_MAX_SLOTS 1024u

/* The main record as read. */
typedef struct nm_main_record {
  uint64_t length;          /* plaintext length L */
  uint8_t iv[16];
  uint8_t wrapped_key[16];  /* first key slot */
  uint8_t key_check[16];
  uint8_t salt[32];         /* only the first 16 bytes take part in decryption */
  uint8_t opaque[16];
  uint32_t field0;          /* the four 16-bit fields, the first widened */
  uint16_t fields[3];
  uint16_t length_word;     /* as stored, flag bit included */
  uint32_t magic;
} nm_main_record_t;

typedef struct nm_trailer {
  nm_main_record_t main;
  size_t main_offset;       /* in the tail */
  /* Offsets in the tail of each slot's 16 wrapped bytes, in the order they
   * are tried (file order: the main record's slot first). */
  uint32_t slot_count;
  uint32_t slots[NM_TRAILER_MAX_SLOTS + 1];
} nm_trailer_t;

#ifdef __cplusplus
extern "C" {
#endif

/* Walks tail[0, size) backwards from its end. Returns 0 and fills *out, or 2
 * (corrupt) when no valid trailer ends the tail. A slot record closer than 16
 * bytes to the end of the tail reads as its bytes followed by zeros (see
 * nm_trailer_slot). */
uint32_t nm_trailer_walk(const uint8_t *tail, size_t size, nm_trailer_t *out);

/* Copies the 16 wrapped bytes of slot i into key, zero-filled past the tail's end. */
void nm_trailer_slot(const uint8_t *tail, size_t size, const nm_trailer_t *trailer, uint32_t i,
                     uint8_t key[16]);

#ifdef __cplusplus
}
#endif

#endif

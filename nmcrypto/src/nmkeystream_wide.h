/* The payload keystream on processors with 512-bit vector AES: four chunks
 * side by side, each 16-byte lane of a register holding one chunk, so the
 * AES rounds of 32 blocks and the feedback chains of four chunks run at
 * once, with no pass through memory between them. */
#ifndef NMCRYPTO_NMKEYSTREAM_WIDE_H
#define NMCRYPTO_NMKEYSTREAM_WIDE_H

#include <stddef.h>
#include <stdint.h>

#define NM_WIDE_ROUND_KEYS 176u

#ifdef __cplusplus
extern "C" {
#endif

/* Non-zero when this processor and its operating system run the wide path. */
int nm_wide_available(void);

/* The AES-128 encryption key schedule of key. Only when nm_wide_available. */
void nm_wide_expand(const uint8_t key[16], uint8_t round_keys[NM_WIDE_ROUND_KEYS]);

/* Decrypts length bytes (a multiple of 16) of payload starting at chunk
 * number chunk, like nm_keystream_decrypt. in and out are the same memory or
 * don't overlap; any alignment works. Only when nm_wide_available. */
void nm_wide_decrypt(const uint8_t round_keys[NM_WIDE_ROUND_KEYS], const uint8_t iv[16],
                     uint64_t chunk, const uint8_t *in, uint8_t *out, size_t length);

#ifdef __cplusplus
}
#endif

#endif

/* Payload keystream: 128-byte chunks, each a ciphertext-feedback chain
 * started from its own counter block, with every keystream block XORed with
 * the previous one plus 0x5A bytewise. */
#ifndef NMCRYPTO_NMKEYSTREAM_H
#define NMCRYPTO_NMKEYSTREAM_H

#include <stddef.h>
#include <stdint.h>

typedef struct evp_cipher_ctx_st EVP_CIPHER_CTX;

#define NM_KEYSTREAM_CHUNK 128u
#define NM_KEYSTREAM_SCRATCH 4096u

/* The file key in the two forms the paths need. Owned by its user, who
 * frees it with nm_keystream_free (which also wipes the round keys). */
typedef struct nm_keystream {
  EVP_CIPHER_CTX *ctx;        /* AES-128-ECB encrypting with the file key, padding off */
  uint8_t round_keys[176];    /* the same key expanded, when wide */
  int wide;                   /* non-zero: the processor's wide vector path decrypts */
} nm_keystream_t;

#ifdef __cplusplus
extern "C" {
#endif

/* Sets ks up for key (ctx is created when null). The wide path is taken
 * where the processor has it and it agrees with OpenSSL on a test chunk.
 * Returns 0, or 1 when the cipher can't be set up. */
int nm_keystream_setup(nm_keystream_t *ks, const uint8_t key[16]);

/* Frees the context and wipes the round keys; ks stays usable for setup. */
void nm_keystream_free(nm_keystream_t *ks);

/* Decrypts length bytes (a multiple of 16) of payload that start position
 * bytes into it (a multiple of 128). in and out are the same memory or don't
 * overlap; any alignment works. scratch holds NM_KEYSTREAM_SCRATCH bytes; it
 * may be left holding AES outputs under the file key, so its owner wipes it
 * once done with the stream. Returns 0, or 1 when the cipher failed (out is
 * then undefined). */
int nm_keystream_decrypt(const nm_keystream_t *ks, const uint8_t iv[16], uint64_t position,
                         const uint8_t *in, uint8_t *out, size_t length, uint8_t *scratch);

/* Test seam: 0 keeps every later setup on the OpenSSL path, 1 (the default)
 * lets it take the wide path where it can. Not for production code. */
void nm_keystream_allow_wide(int allow);

#ifdef __cplusplus
}
#endif

#endif

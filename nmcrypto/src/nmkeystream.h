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

#ifdef __cplusplus
extern "C" {
#endif

/* Decrypts length bytes (a multiple of 16) of payload that start position
 * bytes into it (a multiple of 128). ctx encrypts AES-128-ECB with the file
 * key, padding off. in and out may be the same memory; any alignment works.
 * scratch holds NM_KEYSTREAM_SCRATCH bytes; it is left holding AES outputs
 * under the file key, so its owner wipes it once done with the stream.
 * Returns 0, or 1 when the cipher failed (out is then undefined). */
int nm_keystream_decrypt(EVP_CIPHER_CTX *ctx, const uint8_t iv[16], uint64_t position,
                         const uint8_t *in, uint8_t *out, size_t length, uint8_t *scratch);

#ifdef __cplusplus
}
#endif

#endif

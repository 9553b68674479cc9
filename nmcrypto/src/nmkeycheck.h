/* Key derivation and key check over the slots a trailer walk found. */
#ifndef NMCRYPTO_NMKEYCHECK_H
#define NMCRYPTO_NMKEYCHECK_H

#include "nmtrailer.h"

#include <stddef.h>
#include <stdint.h>

#define NM_DIGEST_MD5 1
#define NM_DIGEST_SHA256 4

#ifdef __cplusplus
extern "C" {
#endif

/* Non-zero when MD5 may not be used (FIPS mode, or the seam forces it). */
int nm_keycheck_fips(void);

/* Tries each slot in order, MD5 then SHA-256 per slot (MD5 skipped in FIPS
 * mode). On a match copies the file key to key, sets *digest (NM_DIGEST_*)
 * and returns 0; otherwise returns 1 and key is zeroed. Every derived key and
 * candidate is wiped before returning. */
uint32_t nm_keycheck_find(const uint8_t *tail, size_t size, const nm_trailer_t *trailer,
                          const char *passphrase, uint8_t key[16], int *digest);

#ifdef __cplusplus
}
#endif

#endif

/* Test seams of the decrypter. Not for production code. */
#ifndef NMCRYPTO_NMCRYPTO_SEAMS_H
#define NMCRYPTO_NMCRYPTO_SEAMS_H

#ifdef __cplusplus
extern "C" {
#endif

/* FIPS mode as the key check sees it: -1 asks OpenSSL (the default),
 * 0 forces it off, 1 forces it on. */
void nm_crypto_dec_force_fips(int mode);

#ifdef __cplusplus
}
#endif

#endif

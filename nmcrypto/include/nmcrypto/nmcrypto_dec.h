/* Envelope decrypter: examines an envelope's trailer, checks the passphrase
 * against its key slots and streams the plaintext.
 *
 * Calling order: new -> open -> read until it yields 0 bytes -> free;
 * error_text whenever a call fails. One handle serves one envelope and
 * belongs to one thread at a time. */
#ifndef NMCRYPTO_NMCRYPTO_DEC_H
#define NMCRYPTO_NMCRYPTO_DEC_H

#include <stddef.h>
#include <stdint.h>

#include <nmplatform/nmplace.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes. */
enum {
  NM_CRYPTO_OK = 0,
  NM_CRYPTO_MISMATCH = 1,      /* no key slot passes the key check */
  NM_CRYPTO_CORRUPT = 2,       /* trailer missing or malformed */
  NM_CRYPTO_IO = 3,            /* a file-system call failed */
  NM_CRYPTO_NOT_ENVELOPE = 5,  /* probe only */
  NM_CRYPTO_INVALID = 6        /* bad argument or output buffer too small */
};

typedef struct nm_crypto_dec nm_crypto_dec_t;

/* A zeroed handle, or null when memory is short. */
nm_crypto_dec_t *nm_crypto_dec_new(void);

/* Opens path with passphrase (bytes as they are). On a file-system failure
 * the system error number goes to *sys_error (may be null). */
uint32_t nm_crypto_dec_open(const char *passphrase, const char *path, nm_crypto_dec_t *dec,
                            uint32_t *sys_error);

/* Delivers up to size (>= 128) plaintext bytes; *count 0 with result 0 is the
 * end. Never writes past size; in the direct case up to 15 bytes past *count
 * (within size) may be overwritten. A handle that isn't open (never opened,
 * or its open failed) gives NM_CRYPTO_INVALID and keeps its message. */
uint32_t nm_crypto_dec_read(nm_crypto_dec_t *dec, void *buffer, size_t size, uint64_t *count);

/* trailer_offset of a trailer that stood in the ".nmb-meta" side file. */
#define NM_CRYPTO_TRAILER_IN_SIDE_FILE UINT64_MAX

/* Where an opened envelope's plaintext comes from. The envelope's layout
 * agrees with L when L equals trailer_offset (trailer in the envelope) or
 * the envelope's size (trailer in the side file). */
typedef struct nm_crypto_layout {
  uint64_t length;              /* plaintext length L from the main record */
  uint64_t trailer_offset;      /* envelope offset of the main record */
  nm_file_identity_t envelope;  /* the envelope file as opened */
} nm_crypto_layout_t;

/* Fills *layout as recorded by a successful open: 0; 6 for null arguments or
 * a handle that did not open (*layout is zeroed then). */
uint32_t nm_crypto_dec_layout(const nm_crypto_dec_t *dec, nm_crypto_layout_t *layout);

/* The handle's message text, valid until the handle is freed. */
const char *nm_crypto_dec_error_text(const nm_crypto_dec_t *dec);

/* Frees everything and nulls *dec; null pointers are ignored. */
void nm_crypto_dec_free(nm_crypto_dec_t **dec);

/* 0 when path (or its ".nmb-meta" side file) is an envelope, 3 when it can't
 * be read, 5 otherwise. Never reads the payload. */
uint32_t nm_crypto_dec_probe(const char *path, uint32_t *sys_error);

/* nm_crypto_dec_probe for a file whose side file is known not to exist (a
 * folder listing just showed none): the same answer without trying to open
 * it. */
uint32_t nm_crypto_dec_probe_alone(const char *path, uint32_t *sys_error);

#ifdef __cplusplus
}
#endif

#endif

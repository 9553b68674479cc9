/* The decrypt handle and the helpers its units share. */
#ifndef NMCRYPTO_NMCRYPTO_INTERNAL_H
#define NMCRYPTO_NMCRYPTO_INTERNAL_H

#include "nmcrypto/nmcrypto_dec.h"
#include "nmkeystream.h"
#include "nmtrailer.h"

#include "nmplatform/nmfile.h"

#include <openssl/evp.h>

#define NM_CRYPTO_WORK_SIZE 65536u
#define NM_CRYPTO_MESSAGE_SIZE 256u
#define NM_CRYPTO_PATH_SIZE 8192u
#define NM_CRYPTO_NO_CARRY UINT64_MAX

struct nm_crypto_dec {
  nm_file_t file;
  nm_file_stat_t status;      /* of the file examined last; size S */
  uint8_t file_key[16];       /* only between the key check and the cipher setup */
  nm_keystream_t stream;      /* the file key, set up by a successful open */
  nm_main_record_t main;
  int digest;                 /* that matched: 1 MD5, 4 SHA-256 */
  uint64_t remaining;         /* payload bytes still to read from the file */
  uint8_t work_iv[16];
  uint64_t position;          /* payload offset of the work buffer's first byte; a multiple of 128 */
  uint64_t fill;              /* ciphertext bytes in the work buffer */
  uint64_t consumed;          /* of them, delivered as plaintext */
  uint64_t dirty;             /* leading bytes of the work buffer file data may have reached */
  /* The work buffer holds ciphertext (or the tail while examining); reads
   * decrypt from it straight into the caller's buffer. A chunk that a read
   * delivers only in part stays decrypted in carry for the next read. */
  alignas(4096) uint8_t buffer[NM_CRYPTO_WORK_SIZE];
  alignas(64) uint8_t scratch[NM_KEYSTREAM_SCRATCH]; /* AES inputs and outputs, OpenSSL path */
  alignas(64) uint8_t carry[NM_KEYSTREAM_CHUNK];
  uint64_t carry_at;          /* buffer offset of the chunk in carry; NM_CRYPTO_NO_CARRY if none */
  uint64_t trailer_at;        /* file offset of the main record examined last */
  nm_crypto_layout_t layout;  /* recorded by a successful open */
  int opened;                 /* layout is valid */
  char message[NM_CRYPTO_MESSAGE_SIZE];
  void *owned;                /* released at free; nothing sets it yet */
};

/* Notes that the first bytes of the work buffer may hold file data. Only
 * those are wiped, so that a small file doesn't pay for 64 KiB; the rest of
 * the buffer is never zeroed either. */
static inline void nm_crypto_buffer_used(nm_crypto_dec_t *dec, uint64_t bytes) {
  if (bytes > dec->dirty) dec->dirty = bytes < NM_CRYPTO_WORK_SIZE ? bytes : NM_CRYPTO_WORK_SIZE;
}

/* Wipes what file data reached in the work buffer. */
void nm_crypto_wipe_buffer(nm_crypto_dec_t *dec);

/* Sets the message (cut to 255 characters). With a non-zero sys_error the
 * number goes to *slot (when given) and the system's text is appended. */
void nm_crypto_set_message(nm_crypto_dec_t *dec, const char *text, uint32_t sys_error,
                           uint32_t *slot);

/* Finds and checks the trailer of file (the envelope or its side file).
 * Recognising (check_keys 0) expects file opened by nm_file_open_read_stat
 * into dec->status.
 * check_keys 0 skips the key check (recognising only). Fills dec->main and,
 * on a match, dec->file_key. Returns 0, 1, 2 or 3 with the message set. */
uint32_t nm_crypto_examine(nm_crypto_dec_t *dec, nm_file_t *file, const char *passphrase,
                           int check_keys, uint32_t *sys_error);

#endif

#define NM_LOG_SOURCE "nmcrypto/src/nmcrypto_dec"

#include "nmcrypto_internal.h"
#include "nmkeystream.h"

#include "nmplatform/nmlog.h"
#include "nmplatform/nmstatus.h"
#include "nmplatform/nmstring.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

namespace {

std::atomic<bool> g_alignmentWarned{false};

uint64_t roundUp16(uint64_t n) { return (n + 15) & ~static_cast<uint64_t>(15); }

// Decrypts length bytes (a multiple of 16) at the stream position.
bool decryptBlocks(nm_crypto_dec_t *dec, const uint8_t *in, uint8_t *out, size_t length) {
  if ((reinterpret_cast<uintptr_t>(in) & 7) != 0 && !g_alignmentWarned.exchange(true))
    NM_LOG(NM_LOG_WARN, "Efficiency warning: non-aligned decryption");
  return nm_keystream_decrypt(dec->cipher, dec->work_iv, dec->position, in, out, length) == 0;
}

// Refills the work buffer from the file; counters change only on success.
uint32_t refill(nm_crypto_dec_t *dec) {
  size_t got = 0;
  uint32_t err = nm_file_read(&dec->file, dec->buffer, NM_CRYPTO_WORK_SIZE, &got);
  if (err != 0) {
    nm_crypto_set_message(dec, "Cannot read file", err, nullptr);
    return NM_CRYPTO_IO;
  }
  if (got < NM_CRYPTO_WORK_SIZE && got < dec->remaining) {
    nm_crypto_set_message(dec, "Read failed", 0, nullptr);
    return NM_CRYPTO_IO;
  }
  dec->fill = got < dec->remaining ? got : dec->remaining;  // the rest is the trailer
  dec->consumed = 0;
  dec->remaining -= dec->fill;
  return NM_CRYPTO_OK;
}

}  // namespace

void nm_crypto_set_message(nm_crypto_dec_t *dec, const char *text, uint32_t sys_error,
                           uint32_t *slot) {
  size_t length = 0;
  nm_strlcat(dec->message, text, sizeof dec->message, &length);
  if (sys_error == 0) return;
  if (slot) *slot = sys_error;
  char system[1024] = "N/A";
  nm_strlcat(dec->message, nm_status_text(sys_error, system, sizeof system),
             sizeof dec->message, &length);
}

nm_crypto_dec_t *nm_crypto_dec_new(void) {
  // Page-aligned, so the file reads land on whole pages of the work buffer.
  void *memory = aligned_alloc(alignof(nm_crypto_dec_t), sizeof(nm_crypto_dec_t));
  if (!memory) return nullptr;
  auto *dec = static_cast<nm_crypto_dec_t *>(memory);
  memset(dec, 0, sizeof *dec);
  nm_file_init(&dec->file);
  return dec;
}

void nm_crypto_dec_free(nm_crypto_dec_t **dec) {
  if (!dec || !*dec) return;
  nm_crypto_dec_t *d = *dec;
  free(d->owned);
  EVP_CIPHER_CTX_free(d->cipher);
  nm_file_close(&d->file);
  OPENSSL_cleanse(d, sizeof *d);  // file key, tail and plaintext alike
  free(d);
  *dec = nullptr;
}

const char *nm_crypto_dec_error_text(const nm_crypto_dec_t *dec) {
  return dec ? dec->message : "";
}

uint32_t nm_crypto_dec_read(nm_crypto_dec_t *dec, void *buffer, size_t size, uint64_t *count) {
  if (!dec || !buffer || !count) return NM_CRYPTO_INVALID;
  if (size < 128) {
    nm_crypto_set_message(dec, "Output buffer too small", 0, nullptr);
    return NM_CRYPTO_INVALID;
  }
  *count = 0;
  auto *out = static_cast<uint8_t *>(buffer);
  if (dec->fill != dec->consumed && dec->consumed != 0) {  // decrypted bytes left
    uint64_t n = dec->fill - dec->consumed < size ? dec->fill - dec->consumed : size;
    memcpy(out, dec->buffer + dec->consumed, n);
    dec->consumed += n;
    *count = n;
    return NM_CRYPTO_OK;
  }
  if (dec->remaining == 0 || !dec->cipher) return NM_CRYPTO_OK;  // end of plaintext
  uint32_t rc = refill(dec);
  if (rc != NM_CRYPTO_OK) return rc;
  const uint64_t decrypted = dec->fill;
  const bool inPlace = roundUp16(decrypted) > size;  // else straight into the caller's buffer
  if (!decryptBlocks(dec, dec->buffer, inPlace ? dec->buffer : out, roundUp16(decrypted))) {
    nm_crypto_set_message(dec, "Cannot decrypt file", 0, nullptr);
    return NM_CRYPTO_CORRUPT;
  }
  if (inPlace) {  // the rest is served from the buffer on later calls
    dec->consumed = decrypted < size ? decrypted : size;
    memcpy(out, dec->buffer, dec->consumed);
    *count = dec->consumed;
  } else {
    *count = decrypted;
    dec->fill = 0;
  }
  dec->position += decrypted;
  return NM_CRYPTO_OK;
}

#define NM_LOG_SOURCE "nmcrypto/src/nmcrypto_dec"

#include "nmcrypto_internal.h"
#include "nmkeystream.h"

#include "nmplatform/nmlog.h"
#include "nmplatform/nmstatus.h"
#include "nmplatform/nmstring.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

namespace {

std::atomic<bool> g_alignmentWarned{false};

const uint64_t kChunk = NM_KEYSTREAM_CHUNK;

uint64_t roundUp16(uint64_t n) { return (n + 15) & ~static_cast<uint64_t>(15); }

// Decrypts length bytes (a multiple of 16) from the work buffer at offset at
// (a chunk boundary) into out.
bool decryptAt(nm_crypto_dec_t *dec, uint64_t at, uint8_t *out, size_t length) {
  const uint8_t *in = dec->buffer + at;
  if ((reinterpret_cast<uintptr_t>(in) & 7) != 0 && !g_alignmentWarned.exchange(true))
    NM_LOG(NM_LOG_WARN, "Efficiency warning: non-aligned decryption");
  return nm_keystream_decrypt(&dec->stream, dec->work_iv, dec->position + at, in, out, length,
                              dec->scratch) == 0;
}

// Makes carry hold the chunk that starts at offset at (the buffer's last
// chunk may be short: its bytes up to fill, rounded up to 16).
bool loadCarry(nm_crypto_dec_t *dec, uint64_t at) {
  if (dec->carry_at == at) return true;
  const uint64_t length = roundUp16(dec->fill - at < kChunk ? dec->fill - at : kChunk);
  dec->carry_at = decryptAt(dec, at, dec->carry, length) ? at : NM_CRYPTO_NO_CARRY;
  return dec->carry_at == at;
}

// Refills the work buffer from the file; counters change only on success.
uint32_t refill(nm_crypto_dec_t *dec) {
  size_t got = 0;
  uint32_t err = nm_file_read(&dec->file, dec->buffer, NM_CRYPTO_WORK_SIZE, &got);
  if (err != 0) {
    nm_crypto_buffer_used(dec, NM_CRYPTO_WORK_SIZE);  // what a failed read left is unknown
    nm_crypto_set_message(dec, "Cannot read file", err, nullptr);
    return NM_CRYPTO_IO;
  }
  // The last block is decrypted whole: its bytes past the file's are zeros,
  // not whatever the never-cleared buffer held.
  memset(dec->buffer + got, 0, roundUp16(got) - got);
  nm_crypto_buffer_used(dec, roundUp16(got));
  if (got < NM_CRYPTO_WORK_SIZE && got < dec->remaining) {
    nm_crypto_set_message(dec, "Read failed", 0, nullptr);
    return NM_CRYPTO_IO;
  }
  dec->position += dec->fill;
  dec->fill = got < dec->remaining ? got : dec->remaining;  // the rest is the trailer
  dec->consumed = 0;
  dec->carry_at = NM_CRYPTO_NO_CARRY;
  dec->remaining -= dec->fill;
  return NM_CRYPTO_OK;
}

// Delivers the plaintext of buffer bytes [consumed, min(fill, consumed +
// size)): the rest of a chunk held in carry, whole chunks straight into out
// (the buffer's last chunk too when its rounding up to 16 fits in out), and
// a chunk that fits only in part through carry. Consumed moves on success.
bool serve(nm_crypto_dec_t *dec, uint8_t *out, size_t size, uint64_t *count) {
  uint64_t at = dec->consumed;
  const uint64_t end = dec->fill - at < size ? dec->fill : at + size;
  uint8_t *to = out;
  if (at % kChunk != 0) {
    const uint64_t chunk = at - at % kChunk, upTo = chunk + kChunk < end ? chunk + kChunk : end;
    if (!loadCarry(dec, chunk)) return false;
    memcpy(to, dec->carry + (at - chunk), upTo - at);
    to += upTo - at;
    at = upTo;
  }
  uint64_t direct = (end - at) / kChunk * kChunk;
  if (end == dec->fill && roundUp16(end - at) <= size - static_cast<size_t>(to - out))
    direct = roundUp16(end - at);
  if (direct != 0 && !decryptAt(dec, at, to, direct)) return false;
  const uint64_t delivered = direct < end - at ? direct : end - at;
  to += delivered;
  at += delivered;
  if (at < end) {
    if (!loadCarry(dec, at)) return false;
    memcpy(to, dec->carry, end - at);
  }
  *count = end - dec->consumed;
  dec->consumed = end;
  return true;
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

namespace {

const size_t kBufferAt = offsetof(nm_crypto_dec_t, buffer);
const size_t kAfterBuffer = offsetof(nm_crypto_dec_t, scratch);

}  // namespace

nm_crypto_dec_t *nm_crypto_dec_new(void) {
  // Page-aligned, so the file reads land on whole pages of the work buffer.
  void *memory = aligned_alloc(alignof(nm_crypto_dec_t), sizeof(nm_crypto_dec_t));
  if (!memory) return nullptr;
  auto *dec = static_cast<nm_crypto_dec_t *>(memory);
  // Everything but the work buffer, which is only ever read where a file read filled it.
  memset(dec, 0, kBufferAt);
  memset(reinterpret_cast<uint8_t *>(dec) + kAfterBuffer, 0, sizeof *dec - kAfterBuffer);
  nm_file_init(&dec->file);
  return dec;
}

void nm_crypto_wipe_buffer(nm_crypto_dec_t *dec) {
  OPENSSL_cleanse(dec->buffer, dec->dirty);
  dec->dirty = 0;
}

void nm_crypto_dec_free(nm_crypto_dec_t **dec) {
  if (!dec || !*dec) return;
  nm_crypto_dec_t *d = *dec;
  free(d->owned);
  nm_keystream_free(&d->stream);
  nm_file_close(&d->file);
  // File key, tail and plaintext alike.
  OPENSSL_cleanse(d, kBufferAt);
  nm_crypto_wipe_buffer(d);
  OPENSSL_cleanse(reinterpret_cast<uint8_t *>(d) + kAfterBuffer, sizeof *d - kAfterBuffer);
  free(d);
  *dec = nullptr;
}

const char *nm_crypto_dec_error_text(const nm_crypto_dec_t *dec) {
  return dec ? dec->message : "";
}

uint32_t nm_crypto_dec_read(nm_crypto_dec_t *dec, void *buffer, size_t size, uint64_t *count) {
  if (!dec || !buffer || !count) return NM_CRYPTO_INVALID;
  if (!nm_file_is_open(&dec->file)) return NM_CRYPTO_INVALID;  // keeps the failed open's message
  if (size < 128) {
    nm_crypto_set_message(dec, "Output buffer too small", 0, nullptr);
    return NM_CRYPTO_INVALID;
  }
  *count = 0;
  if (dec->fill == dec->consumed) {
    if (dec->remaining == 0) return NM_CRYPTO_OK;  // end of plaintext
    uint32_t rc = refill(dec);
    if (rc != NM_CRYPTO_OK) return rc;
  }
  if (!serve(dec, static_cast<uint8_t *>(buffer), size, count)) {
    nm_crypto_set_message(dec, "Cannot decrypt file", 0, nullptr);
    return NM_CRYPTO_CORRUPT;
  }
  return NM_CRYPTO_OK;
}

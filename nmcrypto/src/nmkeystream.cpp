#include "nmkeystream.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <string.h>

// Every AES input of a chunk is known before decrypting it: the counter
// block, then the chunk's own ciphertext blocks shifted by one. So a whole
// slice of chunks goes through one ECB call, and the cheap feedback chain
// then runs over 16 chunks side by side. Slices stay small enough for the
// scratch space and the data to share the level-1 cache.

namespace {

typedef uint8_t v16 __attribute__((vector_size(16)));

const size_t kChunk = NM_KEYSTREAM_CHUNK;
const size_t kSliceChunks = 64;  // 8 KiB a slice
const size_t kLanes = 16;

inline v16 load(const uint8_t *p) {
  v16 v;
  memcpy(&v, p, 16);
  return v;
}

inline void store(uint8_t *p, v16 v) { memcpy(p, &v, 16); }

// AES inputs of the slice: per chunk the counter block then C0..C6.
void buildInputs(const uint8_t iv[16], uint64_t chunk, const uint8_t *in, size_t length,
                 uint8_t *inputs) {
  for (size_t at = 0; at < length; at += kChunk, ++chunk) {
    uint8_t *w = inputs + at;
    memcpy(w, iv, 16);
    for (int i = 0; i < 8; ++i) w[7 - i] ^= static_cast<uint8_t>(chunk >> (8 * i));
    size_t rest = length - at < kChunk ? length - at : kChunk;
    memcpy(w + 16, in + at, rest - 16);
  }
}

// Keystream chain over `lanes` full chunks: K = E ^ M, P = C ^ K, M = K + 0x5A.
void chainFull(const uint8_t *e, const uint8_t *in, uint8_t *out, size_t lanes) {
  const v16 bias = {0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A,
                    0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A};
  v16 mask[kLanes] = {};
  for (size_t j = 0; j < kChunk; j += 16) {
    for (size_t l = 0; l < lanes; ++l) {
      size_t at = l * kChunk + j;
      v16 k = load(e + at) ^ mask[l];
      store(out + at, load(in + at) ^ k);
      mask[l] = k + bias;
    }
  }
}

// The same for one chunk of blocks * 16 bytes (the payload's last).
void chainShort(const uint8_t *e, const uint8_t *in, uint8_t *out, size_t length) {
  uint8_t mask[16] = {0};
  for (size_t j = 0; j < length; j += 16) {
    for (size_t b = 0; b < 16; ++b) {
      uint8_t k = e[j + b] ^ mask[b];
      out[j + b] = in[j + b] ^ k;
      mask[b] = static_cast<uint8_t>(k + 0x5A);
    }
  }
}

}  // namespace

int nm_keystream_decrypt(EVP_CIPHER_CTX *ctx, const uint8_t iv[16], uint64_t position,
                         const uint8_t *in, uint8_t *out, size_t length) {
  alignas(64) uint8_t scratch[kSliceChunks * kChunk];
  uint64_t chunk = position / kChunk;
  for (size_t done = 0; done < length;) {
    size_t slice = length - done < sizeof scratch ? length - done : sizeof scratch;
    buildInputs(iv, chunk, in + done, slice, scratch);
    int produced = 0;
    if (EVP_EncryptUpdate(ctx, scratch, &produced, scratch, static_cast<int>(slice)) != 1 ||
        produced != static_cast<int>(slice)) {
      OPENSSL_cleanse(scratch, sizeof scratch);
      return 1;
    }
    size_t full = slice / kChunk;
    for (size_t c = 0; c < full; c += kLanes) {
      size_t lanes = full - c < kLanes ? full - c : kLanes;
      chainFull(scratch + c * kChunk, in + done + c * kChunk, out + done + c * kChunk, lanes);
    }
    if (slice % kChunk)
      chainShort(scratch + full * kChunk, in + done + full * kChunk, out + done + full * kChunk,
                 slice % kChunk);
    done += slice;
    chunk += full;
  }
  OPENSSL_cleanse(scratch, sizeof scratch);  // held the keystream's AES outputs
  return 0;
}

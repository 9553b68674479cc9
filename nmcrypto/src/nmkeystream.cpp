#include "nmkeystream.h"
#include "nmkeystream_wide.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <string.h>

#include <atomic>

// Every AES input of a chunk is known before decrypting it: the counter
// block, then the chunk's own ciphertext blocks shifted by one. So a whole
// slice of chunks goes through one ECB call, and only the cheap feedback
// chain (XOR, bytewise add) stays sequential, per chunk. Slices are small
// enough for the scratch space and the data to share the level-1 cache.
// The scratch is the caller's, so that a stream wipes it once, not per call.
// Processors with 512-bit vector AES take the wide path instead, which needs
// neither scratch nor OpenSSL once the key is expanded.

namespace {

std::atomic<bool> g_allowWide{true};

static_assert(sizeof(nm_keystream_t::round_keys) == NM_WIDE_ROUND_KEYS, "one key schedule");

typedef uint8_t v16 __attribute__((vector_size(16)));

const size_t kChunk = NM_KEYSTREAM_CHUNK;

inline v16 load(const uint8_t *p) {
  v16 v;
  memcpy(&v, p, 16);
  return v;
}

inline void store(uint8_t *p, v16 v) { memcpy(p, &v, 16); }

// One 32-byte move where the processor has it, two 16-byte ones elsewhere.
typedef uint8_t v32 __attribute__((vector_size(32)));
inline void copy32(uint8_t *dst, const uint8_t *src) {
  v32 v;
  memcpy(&v, src, 32);
  memcpy(dst, &v, 32);
}

typedef uint64_t u64x2 __attribute__((vector_size(16)));

uint64_t loadBe64(const uint8_t *p) {
  uint64_t v;
  memcpy(&v, p, 8);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  v = __builtin_bswap64(v);
#endif
  return v;
}

// The counter block of chunk n, built in a register: one 16-byte store, so
// the AES call's load of it is forwarded whole.
inline v16 counterBlock(uint64_t head, uint64_t ivTail, uint64_t n) {
  uint64_t first = head ^ n;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  first = __builtin_bswap64(first);
#endif
  u64x2 block = {first, ivTail};
  return reinterpret_cast<v16 &>(block);
}

// AES inputs of the slice: per chunk the counter block (the chunk number
// XORed big-endian into the IV's first half), then C0..C6.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void buildInputs(const uint8_t iv[16], uint64_t chunk, const uint8_t *in, size_t length,
                 uint8_t *inputs) {
  const uint64_t head = loadBe64(iv);
  uint64_t ivTail;
  memcpy(&ivTail, iv + 8, 8);
  const size_t full = length / kChunk;
  for (size_t c = 0; c < full; ++c, ++chunk) {
    uint8_t *w = inputs + c * kChunk;
    const uint8_t *text = in + c * kChunk;
    store(w, counterBlock(head, ivTail, chunk));
    copy32(w + 16, text);
    copy32(w + 48, text + 32);
    copy32(w + 80, text + 64);
    store(w + 112, load(text + 96));
  }
  if (length % kChunk) {
    uint8_t *w = inputs + full * kChunk;
    store(w, counterBlock(head, ivTail, chunk));
    memcpy(w + 16, in + full * kChunk, length % kChunk - 16);
  }
}

const v16 kBias = {0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A,
                  0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A};

// Keystream chain of one chunk of length bytes: K = E ^ M, P = C ^ K,
// M = K + 0x5A. The chain itself stays in a register.
inline void chain(const uint8_t *e, const uint8_t *in, uint8_t *out, size_t length) {
  v16 k = load(e);
  store(out, load(in) ^ k);
  for (size_t j = 16; j < length; j += 16) {
    k = load(e + j) ^ (k + kBias);
    store(out + j, load(in + j) ^ k);
  }
}

// Two whole chunks side by side: their chains are independent, so the
// processor overlaps them instead of waiting on one.
inline void chainPair(const uint8_t *e, const uint8_t *in, uint8_t *out) {
  v16 a = load(e), b = load(e + kChunk);
  store(out, load(in) ^ a);
  store(out + kChunk, load(in + kChunk) ^ b);
#pragma GCC unroll 8
  for (size_t j = 16; j < kChunk; j += 16) {
    a = load(e + j) ^ (a + kBias);
    b = load(e + kChunk + j) ^ (b + kBias);
    store(out + j, load(in + j) ^ a);
    store(out + kChunk + j, load(in + kChunk + j) ^ b);
  }
}

#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void chainSlice(const uint8_t *e, const uint8_t *in, uint8_t *out, size_t length) {
  size_t c = 0;
  for (; c + 2 * kChunk <= length; c += 2 * kChunk) chainPair(e + c, in + c, out + c);
  for (; c < length; c += kChunk)
    chain(e + c, in + c, out + c, length - c < kChunk ? length - c : kChunk);
}

// The OpenSSL path: per slice of the scratch, one ECB call over the inputs.
int decryptNarrow(EVP_CIPHER_CTX *ctx, const uint8_t iv[16], uint64_t first, const uint8_t *in,
                  uint8_t *out, size_t length, uint8_t *scratch) {
  for (size_t at = 0; at < length; at += NM_KEYSTREAM_SCRATCH) {
    const size_t slice = length - at < NM_KEYSTREAM_SCRATCH ? length - at : NM_KEYSTREAM_SCRATCH;
    buildInputs(iv, first + at / kChunk, in + at, slice, scratch);
    int produced = 0;
    if (EVP_EncryptUpdate(ctx, scratch, &produced, scratch, static_cast<int>(slice)) != 1 ||
        produced != static_cast<int>(slice))
      return 1;
    chainSlice(scratch, in + at, out + at, slice);
  }
  return 0;
}

// The wide path is trusted only once it decrypts a chunk exactly as OpenSSL does.
bool wideAgrees(nm_keystream_t *ks) {
  static const uint8_t iv[16] = {0x80, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xff};
  uint8_t in[kChunk], wide[kChunk], narrow[kChunk], scratch[kChunk];
  for (size_t i = 0; i < kChunk; ++i) in[i] = static_cast<uint8_t>(i * 37 + 11);
  const uint64_t chunk = 0x0102030405060708u;
  nm_wide_decrypt(ks->round_keys, iv, chunk, in, wide, kChunk);
  const bool same = decryptNarrow(ks->ctx, iv, chunk, in, narrow, kChunk, scratch) == 0 &&
                    memcmp(wide, narrow, kChunk) == 0;
  OPENSSL_cleanse(wide, sizeof wide);
  OPENSSL_cleanse(narrow, sizeof narrow);
  OPENSSL_cleanse(scratch, sizeof scratch);
  return same;
}

}  // namespace

int nm_keystream_setup(nm_keystream_t *ks, const uint8_t key[16]) {
  ks->wide = 0;
  if (!ks->ctx) ks->ctx = EVP_CIPHER_CTX_new();
  if (!ks->ctx || EVP_EncryptInit_ex(ks->ctx, EVP_aes_128_ecb(), nullptr, key, nullptr) != 1 ||
      EVP_CIPHER_CTX_set_padding(ks->ctx, 0) != 1)
    return 1;
  if (g_allowWide.load() && nm_wide_available()) {
    nm_wide_expand(key, ks->round_keys);
    ks->wide = wideAgrees(ks);
    if (!ks->wide) OPENSSL_cleanse(ks->round_keys, sizeof ks->round_keys);
  }
  return 0;
}

void nm_keystream_free(nm_keystream_t *ks) {
  EVP_CIPHER_CTX_free(ks->ctx);
  ks->ctx = nullptr;
  ks->wide = 0;
  OPENSSL_cleanse(ks->round_keys, sizeof ks->round_keys);
}

int nm_keystream_decrypt(const nm_keystream_t *ks, const uint8_t iv[16], uint64_t position,
                         const uint8_t *in, uint8_t *out, size_t length, uint8_t *scratch) {
  if (ks->wide) {
    nm_wide_decrypt(ks->round_keys, iv, position / kChunk, in, out, length);
    return 0;
  }
  return decryptNarrow(ks->ctx, iv, position / kChunk, in, out, length, scratch);
}

void nm_keystream_allow_wide(int allow) { g_allowWide.store(allow != 0); }

#include "nmkeystream_wide.h"

#include <openssl/crypto.h>
#include <string.h>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))

#include <cpuid.h>
#include <immintrin.h>

// GCC 12's 512-bit broadcasts start from a deliberately undefined register.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define NM_WIDE_TARGET __attribute__((target("aes,avx512f,avx512bw,vaes")))

namespace {

const size_t kGroup = 4 * 128;  // four chunks, one per 16-byte lane

NM_WIDE_TARGET inline __m128i expandStep(__m128i key, __m128i assist) {
  assist = _mm_shuffle_epi32(assist, 0xff);
  key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
  key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
  key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
  return _mm_xor_si128(key, assist);
}

// Rows a, b, c, d of four 16-byte lanes each become the columns:
// a = (a0 b0 c0 d0), b = (a1 b1 c1 d1) and so on. Its own inverse.
NM_WIDE_TARGET inline void transpose(__m512i &a, __m512i &b, __m512i &c, __m512i &d) {
  const __m512i ab01 = _mm512_shuffle_i64x2(a, b, 0x44), ab23 = _mm512_shuffle_i64x2(a, b, 0xEE);
  const __m512i cd01 = _mm512_shuffle_i64x2(c, d, 0x44), cd23 = _mm512_shuffle_i64x2(c, d, 0xEE);
  a = _mm512_shuffle_i64x2(ab01, cd01, 0x88);
  b = _mm512_shuffle_i64x2(ab01, cd01, 0xDD);
  c = _mm512_shuffle_i64x2(ab23, cd23, 0x88);
  d = _mm512_shuffle_i64x2(ab23, cd23, 0xDD);
}

// Whole groups of four chunks. Block j of the four chunks shares register
// t[j]; the AES inputs are the counter blocks, then t[0]..t[6]. Every load
// of a group comes before its stores, so in may equal out.
NM_WIDE_TARGET void decryptGroups(const uint8_t *roundKeys, const uint8_t iv[16], uint64_t chunk,
                                  const uint8_t *in, uint8_t *out, size_t groups) {
  const __m128i *keys = reinterpret_cast<const __m128i *>(roundKeys);
  __m512i k[11];
  for (int r = 0; r < 11; ++r) k[r] = _mm512_broadcast_i32x4(_mm_loadu_si128(keys + r));
  const __m512i bias = _mm512_set1_epi8(0x5A);
  const __m512i ivLanes =
      _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i *>(iv)));
  // Byte-reverses the low half of each lane: the chunk number goes in big-endian.
  const __m512i bigEndian = _mm512_broadcast_i32x4(
      _mm_set_epi8(15, 14, 13, 12, 11, 10, 9, 8, 0, 1, 2, 3, 4, 5, 6, 7));
  const __m512i four = _mm512_set_epi64(0, 4, 0, 4, 0, 4, 0, 4);
  __m512i numbers = _mm512_set_epi64(0, static_cast<long long>(chunk + 3), 0,
                                     static_cast<long long>(chunk + 2), 0,
                                     static_cast<long long>(chunk + 1), 0,
                                     static_cast<long long>(chunk));
  for (size_t g = 0; g < groups; ++g, in += kGroup, out += kGroup) {
    __m512i t[8], x[8];
#pragma GCC unroll 2
    for (int half = 0; half < 2; ++half) {
      __m512i *row = t + 4 * half;
#pragma GCC unroll 4
      for (int c = 0; c < 4; ++c) row[c] = _mm512_loadu_si512(in + 128 * c + 64 * half);
      transpose(row[0], row[1], row[2], row[3]);
    }
    x[0] = _mm512_xor_si512(_mm512_shuffle_epi8(numbers, bigEndian), ivLanes);
    numbers = _mm512_add_epi64(numbers, four);
#pragma GCC unroll 8
    for (int j = 1; j < 8; ++j) x[j] = t[j - 1];
#pragma GCC unroll 8
    for (int j = 0; j < 8; ++j) x[j] = _mm512_xor_si512(x[j], k[0]);
#pragma GCC unroll 9
    for (int r = 1; r < 10; ++r) {
#pragma GCC unroll 8
      for (int j = 0; j < 8; ++j) x[j] = _mm512_aesenc_epi128(x[j], k[r]);
    }
#pragma GCC unroll 8
    for (int j = 0; j < 8; ++j) x[j] = _mm512_aesenclast_epi128(x[j], k[10]);
    // K = E ^ M, P = C ^ K, M = K + 0x5A bytewise: four chains at once.
    __m512i key = x[0];
    t[0] = _mm512_xor_si512(t[0], key);
#pragma GCC unroll 8
    for (int j = 1; j < 8; ++j) {
      key = _mm512_xor_si512(x[j], _mm512_add_epi8(key, bias));
      t[j] = _mm512_xor_si512(t[j], key);
    }
#pragma GCC unroll 2
    for (int half = 0; half < 2; ++half) {
      __m512i *row = t + 4 * half;
      transpose(row[0], row[1], row[2], row[3]);
#pragma GCC unroll 4
      for (int c = 0; c < 4; ++c) _mm512_storeu_si512(out + 128 * c + 64 * half, row[c]);
    }
  }
}

// Asked once: in a virtual machine each CPUID traps to the host and costs
// more than setting up the key or decrypting a small file.
int detectWide() {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_AES) || !(c & bit_OSXSAVE)) return 0;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return 0;
  if (!(b & bit_AVX512F) || !(b & bit_AVX512BW) || !(c & bit_VAES)) return 0;
  unsigned lo, hi;
  __asm__("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  return (lo & 0xE6) == 0xE6;  // the system saves the vector and mask registers
}

}  // namespace

int nm_wide_available(void) {
  static const int available = detectWide();
  return available;
}

NM_WIDE_TARGET void nm_wide_expand(const uint8_t key[16],
                                              uint8_t round_keys[NM_WIDE_ROUND_KEYS]) {
  __m128i *rk = reinterpret_cast<__m128i *>(round_keys);
  __m128i k = _mm_loadu_si128(reinterpret_cast<const __m128i *>(key));
  _mm_storeu_si128(rk, k);
#define NM_WIDE_STEP(i, rcon)                               \
  k = expandStep(k, _mm_aeskeygenassist_si128(k, rcon));    \
  _mm_storeu_si128(rk + i, k);
  NM_WIDE_STEP(1, 0x01) NM_WIDE_STEP(2, 0x02) NM_WIDE_STEP(3, 0x04) NM_WIDE_STEP(4, 0x08)
  NM_WIDE_STEP(5, 0x10) NM_WIDE_STEP(6, 0x20) NM_WIDE_STEP(7, 0x40) NM_WIDE_STEP(8, 0x80)
  NM_WIDE_STEP(9, 0x1b) NM_WIDE_STEP(10, 0x36)
#undef NM_WIDE_STEP
}

void nm_wide_decrypt(const uint8_t round_keys[NM_WIDE_ROUND_KEYS], const uint8_t iv[16],
                     uint64_t chunk, const uint8_t *in, uint8_t *out, size_t length) {
  const size_t groups = length / kGroup, done = groups * kGroup, rest = length - done;
  decryptGroups(round_keys, iv, chunk, in, out, groups);
  if (rest == 0) return;
  // The last chunks go through a whole group of padding; what the padding
  // decrypts to is keystream, so it is wiped.
  alignas(64) uint8_t group[kGroup] = {};
  memcpy(group, in + done, rest);
  decryptGroups(round_keys, iv, chunk + done / 128, group, group, 1);
  memcpy(out + done, group, rest);
  OPENSSL_cleanse(group, sizeof group);
}

#else

int nm_wide_available(void) { return 0; }
void nm_wide_expand(const uint8_t *, uint8_t *) {}
void nm_wide_decrypt(const uint8_t *, const uint8_t *, uint64_t, const uint8_t *, uint8_t *,
                     size_t) {}

#endif

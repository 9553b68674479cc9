// The keystream against a plain per-block transcription of the mode, and a
// pinned known-answer vector that guards the transcription itself.
#include "CryptoTestSupport.h"
#include "nmkeystream.h"

#include <openssl/evp.h>

#include <cstring>

using namespace nmtest;

namespace {

const uint8_t kKey[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const uint8_t kIv[16] = {0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7,
                         0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF};

void aesBlock(const uint8_t *in, uint8_t *out) {
  EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
  int n = 0;
  EVP_EncryptInit_ex(ctx, EVP_aes_128_ecb(), nullptr, kKey, nullptr);
  EVP_CIPHER_CTX_set_padding(ctx, 0);
  EVP_EncryptUpdate(ctx, out, &n, in, 16);
  EVP_CIPHER_CTX_free(ctx);
}

// Block by block: counter block per 128-byte chunk (chunk number XORed
// big-endian into the IV's first half), then the ciphertext fed back, each
// keystream block XORed with the previous one plus 0x5A in every byte.
std::string reference(uint64_t position, const std::string &cipher) {
  std::string plain(cipher.size(), '\0');
  for (size_t chunkStart = 0; chunkStart < cipher.size(); chunkStart += 128) {
    uint64_t n = (position + chunkStart) / 128;
    uint8_t w[16], mask[16] = {0}, e[16];
    std::memcpy(w, kIv, 16);
    for (int i = 0; i < 8; ++i) w[i] ^= static_cast<uint8_t>(n >> (56 - 8 * i));
    for (size_t at = chunkStart; at < cipher.size() && at < chunkStart + 128; at += 16) {
      aesBlock(w, e);
      for (size_t b = 0; b < 16; ++b) {
        uint8_t k = e[b] ^ mask[b];
        if (at + b < cipher.size()) plain[at + b] = static_cast<char>(cipher[at + b] ^ k);
        mask[b] = static_cast<uint8_t>(k + 0x5A);
        w[b] = at + b < cipher.size() ? static_cast<uint8_t>(cipher[at + b]) : 0;
      }
    }
  }
  return plain;
}

std::string cipherBytes(size_t size, unsigned seed) {
  std::string out(size, '\0');
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 131 + seed * 7 + (i >> 9)) & 0xFF);
  return out;
}

std::string hex(const std::string &s) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : s) out += std::string{digits[c >> 4], digits[c & 15]};
  return out;
}

// Decrypts with the unit under test at an arbitrary offset from alignment.
std::string decrypt(uint64_t position, const std::string &cipher, size_t offset, bool inPlace) {
  EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
  EVP_EncryptInit_ex(ctx, EVP_aes_128_ecb(), nullptr, kKey, nullptr);
  EVP_CIPHER_CTX_set_padding(ctx, 0);
  size_t rounded = (cipher.size() + 15) / 16 * 16;
  std::vector<uint8_t> in(rounded + offset, 0), out(rounded + offset, 0);
  std::memcpy(in.data() + offset, cipher.data(), cipher.size());
  uint8_t *target = inPlace ? in.data() + offset : out.data() + offset;
  std::vector<uint8_t> scratch(NM_KEYSTREAM_SCRATCH);
  int rc = nm_keystream_decrypt(ctx, kIv, position, in.data() + offset, target, rounded,
                                scratch.data());
  EVP_CIPHER_CTX_free(ctx);
  CHECK_EQ(rc, 0, "cipher");
  return std::string(reinterpret_cast<char *>(target), cipher.size());
}

void testPinnedVector() {
  // Chunk 2 (position 256), 40 bytes: two full blocks and a partial one.
  std::string plain = reference(256, cipherBytes(40, 1));
  CHECK_EQ(hex(plain), std::string("6fc0cbb021917e1d062469ba2ac2c22674353cd2466d614b2a292c1b455e2ea37f5bd81676566847"), "reference transcription");
  CHECK_EQ(hex(decrypt(256, cipherBytes(40, 1), 0, false)), hex(plain), "keystream");
}

void testAgainstReference() {
  struct Case { uint64_t position; size_t size; };
  const Case cases[] = {{0, 16},           {0, 128},         {128, 112},
                        {0, 65536},        {128000, 8240},   {0, 8192 + 128 + 32},
                        {0x123456789ABCull * 128, 384},      {~0ull / 128 * 128 - 256, 256}};
  for (const Case &c : cases) {
    std::string cipher = cipherBytes(c.size, static_cast<unsigned>(c.size));
    std::string want = reference(c.position, cipher);
    std::string what = "position " + std::to_string(c.position) + " size " + std::to_string(c.size);
    CHECK(decrypt(c.position, cipher, 0, false) == want, what + " aligned");
    CHECK(decrypt(c.position, cipher, 3, true) == want, what + " misaligned, in place");
  }
}

}  // namespace

int main() {
  return runCases({{"pinned vector", testPinnedVector},
                   {"against the reference", testAgainstReference}});
}

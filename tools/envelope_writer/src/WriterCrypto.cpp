#include "WriterCrypto.h"

#include <openssl/evp.h>

#include <cstring>
#include <vector>

namespace envelope_writer {

std::string digestOf(Digest digest, const std::string &a, const std::string &b) {
  const EVP_MD *md = digest == Digest::Md5 ? EVP_md5() : EVP_sha256();
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int outLen = 0;
  EVP_MD_CTX *ctx = EVP_MD_CTX_new();
  bool ok = ctx && EVP_DigestInit_ex(ctx, md, nullptr) == 1 &&
            EVP_DigestUpdate(ctx, a.data(), a.size()) == 1 &&
            EVP_DigestUpdate(ctx, b.data(), b.size()) == 1 &&
            EVP_DigestFinal_ex(ctx, out, &outLen) == 1;
  EVP_MD_CTX_free(ctx);
  return ok ? std::string(reinterpret_cast<char *>(out), outLen) : std::string();
}

static bool ecbEncrypt(const unsigned char *key, const unsigned char *in, unsigned char *out,
                       int size) {
  EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
  int outLen = 0;
  bool ok = ctx && EVP_EncryptInit_ex(ctx, EVP_aes_128_ecb(), nullptr, key, nullptr) == 1 &&
            EVP_CIPHER_CTX_set_padding(ctx, 0) == 1 &&
            EVP_EncryptUpdate(ctx, out, &outLen, in, size) == 1 && outLen == size;
  EVP_CIPHER_CTX_free(ctx);
  return ok;
}

std::string wrapKey(Digest digest, const std::string &salt, const std::string &passphrase,
                    const std::string &fileKey) {
  std::string kek = digestOf(digest, salt, passphrase);
  if (kek.size() < 16 || fileKey.size() != 16) return std::string();
  unsigned char out[16];
  if (!ecbEncrypt(reinterpret_cast<const unsigned char *>(kek.data()),
                  reinterpret_cast<const unsigned char *>(fileKey.data()), out, 16))
    return std::string();
  return std::string(reinterpret_cast<char *>(out), 16);
}

static uint64_t splitmix(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

std::string seededBytes(uint64_t seed, uint64_t which) {
  std::string out(16, '\0');
  for (int i = 0; i < 16; ++i)
    out[i] = static_cast<char>(splitmix(seed * 1000003u + which * 64 + i) >> 24);
  return out;
}

EVP_CIPHER_CTX *newPayloadCipher(const std::string &fileKey) {
  EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
  if (!ctx) return nullptr;
  if (EVP_EncryptInit_ex(ctx, EVP_aes_128_ecb(), nullptr,
                         reinterpret_cast<const unsigned char *>(fileKey.data()), nullptr) != 1 ||
      EVP_CIPHER_CTX_set_padding(ctx, 0) != 1) {
    EVP_CIPHER_CTX_free(ctx);
    return nullptr;
  }
  return ctx;
}

void freePayloadCipher(EVP_CIPHER_CTX *ctx) { EVP_CIPHER_CTX_free(ctx); }

// Counter block of chunk n: the IV with n (big-endian) XORed into its first half.
static void counterBlock(const std::string &iv, uint64_t n, uint8_t *out) {
  for (int i = 0; i < 16; ++i) out[i] = static_cast<uint8_t>(iv[i]);
  for (int i = 0; i < 8; ++i) out[7 - i] ^= static_cast<uint8_t>(n >> (8 * i));
}

bool encryptChunks(EVP_CIPHER_CTX *ctx, const std::string &iv, uint64_t firstChunk,
                   uint8_t *data, size_t size) {
  const size_t chunks = (size + kChunk - 1) / kChunk;
  std::vector<uint8_t> inputs(chunks * 16), masks(chunks * 16, 0);
  for (size_t j = 0; j < kChunk / 16; ++j) {
    size_t lanes = 0;  // chunks that have block j
    while (lanes < chunks && lanes * kChunk + j * 16 < size) ++lanes;
    if (lanes == 0) break;
    for (size_t c = 0; c < lanes; ++c) {
      if (j == 0)
        counterBlock(iv, firstChunk + c, &inputs[c * 16]);
      else
        std::memcpy(&inputs[c * 16], data + c * kChunk + (j - 1) * 16, 16);
    }
    int outLen = 0;
    if (EVP_EncryptUpdate(ctx, inputs.data(), &outLen, inputs.data(),
                          static_cast<int>(lanes * 16)) != 1)
      return false;
    for (size_t c = 0; c < lanes; ++c) {
      uint8_t *block = data + c * kChunk + j * 16;
      size_t present = size - (c * kChunk + j * 16);
      if (present > 16) present = 16;
      for (size_t b = 0; b < 16; ++b) {
        uint8_t k = inputs[c * 16 + b] ^ masks[c * 16 + b];
        if (b < present) block[b] ^= k;
        masks[c * 16 + b] = static_cast<uint8_t>(k + 0x5A);
      }
    }
  }
  return true;
}

}  // namespace envelope_writer

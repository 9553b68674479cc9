#include "nmkeycheck.h"

#include "nmcrypto_seams.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <string.h>

#include <atomic>

namespace {

std::atomic<int> g_fipsMode{-1};

// One digest prepared for a key search: the key-encryption key depends only
// on salt and passphrase, so its unwrapping context serves every slot.
struct Candidate {
  const EVP_MD *md;
  int id;
  EVP_CIPHER_CTX *unwrap;
};

// First 16 bytes of digest(salt || data).
bool digest16(EVP_MD_CTX *ctx, const EVP_MD *md, const uint8_t *salt, const void *data,
              size_t size, uint8_t out[16]) {
  unsigned char full[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  bool ok = md && EVP_DigestInit_ex(ctx, md, nullptr) == 1 &&
            EVP_DigestUpdate(ctx, salt, 16) == 1 && EVP_DigestUpdate(ctx, data, size) == 1 &&
            EVP_DigestFinal_ex(ctx, full, &length) == 1 && length >= 16;
  if (ok) memcpy(out, full, 16);
  OPENSSL_cleanse(full, sizeof full);
  return ok;
}

void prepare(Candidate *c, EVP_MD_CTX *mdCtx, const uint8_t *salt, const char *passphrase) {
  uint8_t kek[16];
  if (digest16(mdCtx, c->md, salt, passphrase, strlen(passphrase), kek)) {
    c->unwrap = EVP_CIPHER_CTX_new();
    if (c->unwrap &&
        (EVP_DecryptInit_ex(c->unwrap, EVP_aes_128_ecb(), nullptr, kek, nullptr) != 1 ||
         EVP_CIPHER_CTX_set_padding(c->unwrap, 0) != 1)) {
      EVP_CIPHER_CTX_free(c->unwrap);
      c->unwrap = nullptr;
    }
  }
  OPENSSL_cleanse(kek, sizeof kek);
}

bool unwrapAndCheck(const Candidate &c, EVP_MD_CTX *mdCtx, const uint8_t wrapped[16],
                    const nm_main_record_t &main, uint8_t key[16]) {
  if (!c.unwrap) return false;
  uint8_t candidate[16], check[16];
  int produced = 0;
  bool ok = EVP_DecryptUpdate(c.unwrap, candidate, &produced, wrapped, 16) == 1 &&
            produced == 16 && digest16(mdCtx, c.md, main.salt, candidate, 16, check) &&
            CRYPTO_memcmp(check, main.key_check, 16) == 0;
  if (ok) memcpy(key, candidate, 16);
  OPENSSL_cleanse(candidate, sizeof candidate);
  OPENSSL_cleanse(check, sizeof check);
  return ok;
}

}  // namespace

void nm_crypto_dec_force_fips(int mode) { g_fipsMode = mode < 0 ? -1 : (mode ? 1 : 0); }

int nm_keycheck_fips(void) {
  int mode = g_fipsMode;
  return mode >= 0 ? mode : EVP_default_properties_is_fips_enabled(nullptr);
}

uint32_t nm_keycheck_find(const uint8_t *tail, size_t size, const nm_trailer_t *trailer,
                          const char *passphrase, uint8_t key[16], int *digest) {
  memset(key, 0, 16);
  *digest = 0;
  const bool fips = nm_keycheck_fips() != 0;
  Candidate candidates[2] = {{fips ? nullptr : EVP_md5(), NM_DIGEST_MD5, nullptr},
                             {EVP_sha256(), NM_DIGEST_SHA256, nullptr}};
  EVP_MD_CTX *mdCtx = EVP_MD_CTX_new();
  if (mdCtx)
    for (Candidate &c : candidates)
      if (c.md) prepare(&c, mdCtx, trailer->main.salt, passphrase ? passphrase : "");

  uint32_t rc = 1;
  for (uint32_t i = 0; i < trailer->slot_count && rc != 0; ++i) {
    uint8_t wrapped[16];
    nm_trailer_slot(tail, size, trailer, i, wrapped);
    for (const Candidate &c : candidates) {
      if (unwrapAndCheck(c, mdCtx, wrapped, trailer->main, key)) {
        *digest = c.id;
        rc = 0;
        break;
      }
    }
  }
  for (Candidate &c : candidates) EVP_CIPHER_CTX_free(c.unwrap);  // wipes the key schedule
  EVP_MD_CTX_free(mdCtx);
  return rc;
}

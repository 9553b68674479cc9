// The writer's own cryptography: digests, key wrapping and the keystream
// encryption of the envelope payload. Deliberately separate from the
// decrypter's code so that each checks the other.
#ifndef ENVELOPE_WRITER_WRITERCRYPTO_H
#define ENVELOPE_WRITER_WRITERCRYPTO_H

#include "envelope_writer/EnvelopeWriter.h"

#include <cstdint>
#include <string>

typedef struct evp_cipher_ctx_st EVP_CIPHER_CTX;

namespace envelope_writer {

constexpr size_t kChunk = 128;

// digest(a || b), all of its bytes (16 for MD5, 32 for SHA-256); empty on failure.
std::string digestOf(Digest digest, const std::string &a, const std::string &b);

// AES-128-ECB encryption of the 16-byte key under the first 16 bytes of
// digest(salt || passphrase); empty on failure.
std::string wrapKey(Digest digest, const std::string &salt, const std::string &passphrase,
                    const std::string &fileKey);

// 16 deterministic bytes for (seed, which).
std::string seededBytes(uint64_t seed, uint64_t which);

// Encrypting context for the payload (AES-128-ECB, padding off); null on failure.
EVP_CIPHER_CTX *newPayloadCipher(const std::string &fileKey);
void freePayloadCipher(EVP_CIPHER_CTX *ctx);

// Encrypts whole chunks in place: data holds plaintext bytes starting at
// chunk index firstChunk, size bytes (only the last chunk may be short).
// All chunks advance one block step at a time, so one AES call serves the
// same block of every chunk.
bool encryptChunks(EVP_CIPHER_CTX *ctx, const std::string &iv, uint64_t firstChunk,
                   uint8_t *data, size_t size);

}  // namespace envelope_writer

#endif

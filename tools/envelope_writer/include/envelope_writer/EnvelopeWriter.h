// Test envelope writer: produces *.nimbra-env files (and ".nmb-meta" side
// files) for tests, fuzz seeds, benchmarks and the demo. A developer tool,
// never part of the program. It encrypts with its own keystream code, so the
// decrypter is checked against an independent implementation.
//
// Typical use:
//   envelope_writer::EnvelopeOptions opts;
//   opts.records.push_back({});                 // one more key slot, same passphrase
//   std::string err;
//   if (!envelope_writer::writeEnvelope(path, "plain text", "secret", opts, &err)) ...
#ifndef ENVELOPE_WRITER_ENVELOPEWRITER_H
#define ENVELOPE_WRITER_ENVELOPEWRITER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace envelope_writer {

constexpr uint32_t kMagicV1 = 0xB10BB10Bu;
constexpr uint32_t kMagicV2 = 0xB20BB20Bu;
constexpr uint16_t kTagMain = 0x8106;
constexpr uint16_t kTagKeySlot = 0x8107;
constexpr size_t kMainRecordLength = 120;
constexpr const char *kSideFileSuffix = ".nmb-meta";

// The digest that makes a key-encryption key (and, for the main record, the
// key check value). The values are the decrypter's internal digest numbers.
enum class Digest { Md5 = 1, Sha256 = 4 };

// One trailer record after the main record, in file order.
struct ExtraRecord {
  uint16_t tag = kTagKeySlot;   // anything else is an unknown record
  // Key slot only: the slot's wrapped key opens with this passphrase and
  // digest. usePassphrase false: the slot wraps with the envelope's passphrase.
  bool usePassphrase = false;
  std::string passphrase;
  Digest digest = Digest::Sha256;
  size_t length = 24;           // whole record, footer included; >= 24 for a slot, >= 8 else
  uint8_t fill = 0xEE;          // bytes between the wrapped key (or start) and the footer
};

struct EnvelopeOptions {
  Digest digest = Digest::Sha256;  // main slot's wrap and the key check value
  std::vector<ExtraRecord> records;
  uint32_t magic = kMagicV1;       // written in every record footer
  bool flagBit = false;            // sets bit 15 of every length word
  bool sideFile = false;           // trailer goes to path + ".nmb-meta", payload alone in path
  // Fixed key material (16 bytes each); empty: derived from seed.
  std::string fileKey, iv, salt;
  uint64_t seed = 1;
  // Fields the decrypter keeps but never uses.
  std::string saltTail;            // 16 bytes at offset 72; empty: derived from seed
  std::string opaque;              // 16 bytes at offset 88; empty: derived from seed
  uint16_t fields[4] = {1, 2, 3, 4};
};

// Whole envelope from an in-memory plaintext. Returns false with a reason in
// *error (when given) on any failure; an existing file is replaced.
bool writeEnvelope(const std::string &path, const std::string &plaintext,
                   const std::string &passphrase, const EnvelopeOptions &opts = {},
                   std::string *error = nullptr);

// Envelope of size bytes whose plaintext is patternBytes(0, size): for large
// sizes without holding the plaintext in memory.
bool writePatternEnvelope(const std::string &path, uint64_t size, const std::string &passphrase,
                          const EnvelopeOptions &opts = {}, std::string *error = nullptr);

// The deterministic plaintext of writePatternEnvelope, bytes [offset, offset + size).
void patternBytes(uint64_t offset, void *buffer, size_t size);
std::string patternString(uint64_t offset, size_t size);

// The trailer alone (main record then opts.records) for a plaintext of
// plaintextLength bytes: for hand-made side files and corrupted trailers.
std::string buildTrailer(uint64_t plaintextLength, const std::string &passphrase,
                         const EnvelopeOptions &opts = {});

// Streaming writer: open, append the plaintext in pieces of any size, finish.
// Every call returns false once something failed; error() says why.
class EnvelopeWriter {
public:
  EnvelopeWriter() = default;
  ~EnvelopeWriter();  // an unfinished envelope is closed and removed
  EnvelopeWriter(const EnvelopeWriter &) = delete;
  EnvelopeWriter &operator=(const EnvelopeWriter &) = delete;

  bool open(const std::string &path, const std::string &passphrase,
            const EnvelopeOptions &opts = {});
  bool append(const void *data, size_t size);
  bool finish();  // writes the trailer and closes
  const std::string &error() const { return error_; }

private:
  bool fail(const std::string &why);
  bool flushChunks(bool final);

  std::string path_, passphrase_, error_;
  EnvelopeOptions opts_;
  std::FILE *file_ = nullptr;
  std::string key_, iv_;           // resolved key material
  std::vector<uint8_t> pending_;   // plaintext not yet encrypted (< one buffer)
  uint64_t written_ = 0;           // plaintext bytes encrypted so far
  void *cipher_ = nullptr;         // EVP_CIPHER_CTX, kept opaque here
};

}  // namespace envelope_writer

#endif

#include "envelope_writer/EnvelopeWriter.h"

#include "WriterCrypto.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace envelope_writer {
namespace {

constexpr size_t kBlockBytes = 65536;  // multiple of the chunk size

void putBe(std::string &out, uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<char>(value >> (8 * i)));
}

bool putFooter(std::string &out, uint16_t tag, size_t length, const EnvelopeOptions &opts) {
  if (length < 8 || length > 0x7FFF) return false;
  putBe(out, tag, 2);
  putBe(out, length | (opts.flagBit ? 0x8000u : 0u), 2);
  putBe(out, opts.magic, 4);
  return true;
}

std::string material(const std::string &given, uint64_t seed, uint64_t which) {
  return given.empty() ? seededBytes(seed, which) : given;
}

bool appendRecord(std::string &out, const ExtraRecord &rec, const std::string &passphrase,
                  const std::string &salt, const std::string &key, const EnvelopeOptions &opts) {
  if (rec.length < 8) return false;
  std::string body;
  if (rec.tag == kTagKeySlot) {
    body = wrapKey(rec.digest, salt, rec.usePassphrase ? rec.passphrase : passphrase, key);
    if (body.empty()) return false;
  }
  body.resize(rec.length - 8, static_cast<char>(rec.fill));
  out += body;
  return putFooter(out, rec.tag, rec.length, opts);
}

}  // namespace

std::string buildTrailer(uint64_t plaintextLength, const std::string &passphrase,
                         const EnvelopeOptions &opts) {
  const std::string key = material(opts.fileKey, opts.seed, 0);
  const std::string iv = material(opts.iv, opts.seed, 1);
  const std::string salt = material(opts.salt, opts.seed, 2);
  const std::string saltTail = material(opts.saltTail, opts.seed, 3);
  const std::string opaque = material(opts.opaque, opts.seed, 4);
  for (const std::string *s : {&key, &iv, &salt, &saltTail, &opaque})
    if (s->size() != 16) return std::string();
  const std::string wrapped = wrapKey(opts.digest, salt, passphrase, key);
  const std::string check = digestOf(opts.digest, salt, key).substr(0, 16);
  if (wrapped.empty() || check.size() != 16) return std::string();

  std::string out;
  putBe(out, plaintextLength, 8);
  out += iv + wrapped + check + salt + saltTail + opaque;
  for (uint16_t field : opts.fields) putBe(out, field, 2);
  putFooter(out, kTagMain, kMainRecordLength, opts);
  for (const ExtraRecord &rec : opts.records)
    if (!appendRecord(out, rec, passphrase, salt, key, opts)) return std::string();
  return out;
}

EnvelopeWriter::~EnvelopeWriter() {
  if (file_) {
    std::fclose(file_);
    std::remove(path_.c_str());
  }
  freePayloadCipher(static_cast<EVP_CIPHER_CTX *>(cipher_));
}

bool EnvelopeWriter::fail(const std::string &why) {
  if (error_.empty()) error_ = why;
  return false;
}

bool EnvelopeWriter::open(const std::string &path, const std::string &passphrase,
                          const EnvelopeOptions &opts) {
  if (file_ || cipher_) return fail("writer already used");
  path_ = path;
  passphrase_ = passphrase;
  opts_ = opts;
  key_ = material(opts.fileKey, opts.seed, 0);
  iv_ = material(opts.iv, opts.seed, 1);
  if (key_.size() != 16 || iv_.size() != 16) return fail("file key and IV must be 16 bytes");
  cipher_ = newPayloadCipher(key_);
  if (!cipher_) return fail("cannot set up AES-128");
  file_ = std::fopen(path.c_str(), "wb");
  if (!file_) return fail("cannot create " + path + ": " + std::strerror(errno));
  pending_.reserve(kBlockBytes);
  return true;
}

bool EnvelopeWriter::flushChunks(bool final) {
  if (!file_) return fail("writer not open");
  size_t size = final ? pending_.size() : pending_.size() - pending_.size() % kBlockBytes;
  if (size == 0) return true;
  auto *ctx = static_cast<EVP_CIPHER_CTX *>(cipher_);
  if (!encryptChunks(ctx, iv_, written_ / kChunk, pending_.data(), size))
    return fail("AES-128 encryption failed");
  if (std::fwrite(pending_.data(), 1, size, file_) != size)
    return fail("cannot write " + path_ + ": " + std::strerror(errno));
  written_ += size;
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(size));
  return true;
}

bool EnvelopeWriter::append(const void *data, size_t size) {
  if (!file_) return fail("writer not open");
  const auto *bytes = static_cast<const uint8_t *>(data);
  while (size > 0) {
    size_t take = std::min(size, kBlockBytes - pending_.size());
    pending_.insert(pending_.end(), bytes, bytes + take);
    bytes += take;
    size -= take;
    if (pending_.size() == kBlockBytes && !flushChunks(false)) return false;
  }
  return true;
}

bool EnvelopeWriter::finish() {
  if (!flushChunks(true)) return false;
  std::string trailer = buildTrailer(written_, passphrase_, opts_);
  if (trailer.empty()) return fail("invalid trailer options (record lengths 8 to 32767)");
  std::FILE *out = file_;
  const std::string outPath = opts_.sideFile ? path_ + kSideFileSuffix : path_;
  if (opts_.sideFile && !(out = std::fopen(outPath.c_str(), "wb")))
    return fail("cannot create " + outPath + ": " + std::strerror(errno));
  bool ok = std::fwrite(trailer.data(), 1, trailer.size(), out) == trailer.size();
  ok = std::fclose(out) == 0 && ok;
  if (opts_.sideFile) ok = std::fclose(file_) == 0 && ok;
  file_ = nullptr;
  if (!ok) {
    std::remove(path_.c_str());
    return fail("cannot write " + outPath);
  }
  return true;
}

bool writeEnvelope(const std::string &path, const std::string &plaintext,
                   const std::string &passphrase, const EnvelopeOptions &opts,
                   std::string *error) {
  EnvelopeWriter writer;
  bool ok = writer.open(path, passphrase, opts) &&
            writer.append(plaintext.data(), plaintext.size()) && writer.finish();
  if (!ok && error) *error = writer.error();
  return ok;
}

bool writePatternEnvelope(const std::string &path, uint64_t size, const std::string &passphrase,
                          const EnvelopeOptions &opts, std::string *error) {
  EnvelopeWriter writer;
  std::vector<uint8_t> piece(kBlockBytes);
  bool ok = writer.open(path, passphrase, opts);
  for (uint64_t done = 0; ok && done < size; done += piece.size()) {
    size_t n = static_cast<size_t>(std::min<uint64_t>(piece.size(), size - done));
    patternBytes(done, piece.data(), n);
    ok = writer.append(piece.data(), n);
  }
  ok = ok && writer.finish();
  if (!ok && error) *error = writer.error();
  return ok;
}

void patternBytes(uint64_t offset, void *buffer, size_t size) {
  auto *out = static_cast<uint8_t *>(buffer);
  for (size_t i = 0; i < size; ++i) {
    uint64_t at = offset + i;
    uint64_t word = ((at >> 3) + 1) * 0x9E3779B97F4A7C15ull;
    word ^= word >> 29;
    out[i] = static_cast<uint8_t>(word >> (8 * (at & 7)));
  }
}

std::string patternString(uint64_t offset, size_t size) {
  std::string out(size, '\0');
  patternBytes(offset, &out[0], size);
  return out;
}

}  // namespace envelope_writer

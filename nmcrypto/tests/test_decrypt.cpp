// Envelopes from the independent writer decrypt to the exact plaintext for
// every length edge, read-size sequence, buffer alignment, winning slot,
// digest and trailer variant; wrong passphrases are refused.
#include "CryptoTestSupport.h"
#include "nmcrypto_seams.h"

#include "envelope_writer/EnvelopeWriter.h"

using namespace nmtest;
namespace ew = envelope_writer;

namespace {

const std::vector<size_t> kLengths = {0,     1,     15,    16,    17,    127,  128,
                                      129,   65535, 65536, 65636, 3 * 1048576 + 7};

struct ReadPattern {
  const char *name;
  std::vector<size_t> sizes;
  size_t offset;
};

const std::vector<ReadPattern> kPatterns = {
    {"1024 aligned", {1024}, 0},
    {"128 misaligned", {128}, 3},
    {"65536", {65536}, 0},
    {"70000 misaligned", {70000}, 5},
    {"mixed", {128, 70000, 1000, 129, 65536, 4097, 200}, 1},
    {"mixed aligned", {4096, 130, 65535, 128, 1024}, 0},
};

void testLengthsAndReadSizes() {
  TempDir dir;
  for (size_t length : kLengths) {
    const std::string path = dir.file("L" + std::to_string(length) + ".nimbra-env");
    std::string error;
    CHECK(ew::writePatternEnvelope(path, length, "pass", {}, &error), error);
    const std::string want = ew::patternString(0, length);
    for (const ReadPattern &p : kPatterns) {
      if (length > 200000 && p.sizes.size() == 1 && p.sizes[0] < 1024) continue;
      Decrypted d = decryptFile(path, "pass", p.sizes, p.offset);
      const std::string what = "length " + std::to_string(length) + ", " + p.name;
      CHECK_EQ(d.openRc, 0u, what + " " + d.message);
      CHECK_EQ(d.readRc, 0u, what + " " + d.message);
      CHECK(d.plaintext == want, what);
    }
  }
}

// 65,636 bytes read 1,024 at a time: 64 full reads, then 100, then the end.
void testReadCounts() {
  TempDir dir;
  const std::string path = dir.file("a.nimbra-env");
  CHECK(ew::writePatternEnvelope(path, 65636, "pass"), "write");
  nm_crypto_dec_t *dec = nm_crypto_dec_new();
  CHECK_EQ(nm_crypto_dec_open("pass", path.c_str(), dec, nullptr), 0u, "open");
  std::vector<uint64_t> counts;
  std::vector<char> buffer(1024);
  for (int i = 0; i < 70; ++i) {
    uint64_t count = 99;
    CHECK_EQ(nm_crypto_dec_read(dec, buffer.data(), buffer.size(), &count), 0u, "read");
    counts.push_back(count);
    if (count == 0) break;
  }
  std::vector<uint64_t> want(64, 1024);
  want.push_back(100);
  want.push_back(0);
  CHECK(counts == want, "read counts");
  uint64_t count = 0;
  CHECK_EQ(nm_crypto_dec_read(dec, buffer.data(), 127, &count), 6u, "size below 128");
  CHECK_EQ(std::string(nm_crypto_dec_error_text(dec)), std::string("Output buffer too small"),
           "message");
  nm_crypto_dec_free(&dec);
  CHECK(dec == nullptr, "free nulls the variable");
  nm_crypto_dec_free(&dec);
  nm_crypto_dec_free(nullptr);
  CHECK_EQ(nm_crypto_dec_open("p", path.c_str(), nullptr, nullptr), 6u, "null handle");
  CHECK_EQ(nm_crypto_dec_read(nullptr, buffer.data(), 1024, &count), 6u, "null handle");
}

ew::ExtraRecord slot(const std::string &passphrase, ew::Digest digest = ew::Digest::Sha256,
                     size_t length = 24) {
  ew::ExtraRecord r;
  r.usePassphrase = true;
  r.passphrase = passphrase;
  r.digest = digest;
  r.length = length;
  return r;
}

ew::ExtraRecord unknown(uint16_t tag, size_t length) {
  ew::ExtraRecord r;
  r.tag = tag;
  r.length = length;
  return r;
}

struct SlotCase {
  const char *name;
  std::string mainPassphrase;
  ew::EnvelopeOptions opts;
  std::string passphrase;
  uint32_t rc;
};

std::vector<SlotCase> slotCases() {
  ew::EnvelopeOptions md5;
  md5.digest = ew::Digest::Md5;
  ew::EnvelopeOptions second;
  second.records = {slot("other"), slot("right"), slot("third")};
  ew::EnvelopeOptions last;
  last.records = {slot("a"), unknown(0x0001, 64), slot("b", ew::Digest::Sha256, 40),
                  unknown(0x8108, 8), slot("right")};
  last.magic = ew::kMagicV2;
  last.flagBit = true;
  ew::EnvelopeOptions md5Slot;
  md5Slot.digest = ew::Digest::Md5;
  md5Slot.records = {slot("right", ew::Digest::Md5)};
  ew::EnvelopeOptions wrongDigest;  // check value is SHA-256: an MD5-wrapped slot can't pass
  wrongDigest.records = {slot("right", ew::Digest::Md5)};
  return {
      {"main slot, SHA-256", "right", {}, "right", 0},
      {"main slot, MD5", "right", md5, "right", 0},
      {"empty passphrase", "", {}, "", 0},
      {"second record", "wrong", second, "right", 0},
      {"last record behind unknown ones, version 2, flag bit", "wrong", last, "right", 0},
      {"MD5 key-slot record", "x", md5Slot, "right", 0},
      {"slot wrapped with the other digest", "x", wrongDigest, "right", 1},
      {"passphrase one byte off", "right", second, "rights", 1},
      {"passphrase one byte off in the middle", "right", {}, "riGht", 1},
  };
}

void testSlots() {
  TempDir dir;
  const std::string plain = ew::patternString(0, 1000);
  for (const SlotCase &c : slotCases()) {
    const std::string path = dir.file("s.nimbra-env");
    CHECK(ew::writeEnvelope(path, plain, c.mainPassphrase, c.opts), c.name);
    Decrypted d = decryptFile(path, c.passphrase);
    CHECK_EQ(d.openRc, c.rc, c.name);
    if (c.rc == 0) CHECK(d.plaintext == plain, c.name);
    if (c.rc == 1) CHECK_EQ(d.message, std::string("Passphrase doesn't match"), c.name);
  }
}

void testFips() {
  TempDir dir;
  const std::string md5Path = dir.file("md5.nimbra-env"), shaPath = dir.file("sha.nimbra-env");
  ew::EnvelopeOptions md5;
  md5.digest = ew::Digest::Md5;
  CHECK(ew::writeEnvelope(md5Path, "abc", "p", md5), "write");
  CHECK(ew::writeEnvelope(shaPath, "abc", "p"), "write");
  nm_crypto_dec_force_fips(1);
  Decrypted refused = decryptFile(md5Path, "p");
  Decrypted sha = decryptFile(shaPath, "p");
  Decrypted wrong = decryptFile(shaPath, "q");
  nm_crypto_dec_force_fips(-1);
  CHECK_EQ(refused.openRc, 1u, "MD5 envelope in FIPS mode");
  CHECK_EQ(refused.message,
           std::string("Passphrase doesn't match or file was encrypted using out of date software"),
           "FIPS message");
  CHECK(sha.openRc == 0 && sha.plaintext == "abc", "SHA-256 envelope in FIPS mode");
  CHECK_EQ(wrong.openRc, 1u, "mismatch in FIPS mode");
}

}  // namespace

int main() {
  return runCases({{"lengths and read sizes", testLengthsAndReadSizes},
                   {"read counts and arguments", testReadCounts},
                   {"key slots", testSlots},
                   {"FIPS mode", testFips}});
}

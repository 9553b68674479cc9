// Envelope files on disk: trailer placement and the side-file rule, the
// probe, every corruption class and file-system failure with its code and
// message.
#include "CryptoTestSupport.h"

#include "envelope_writer/EnvelopeWriter.h"
#include "nmplatform/nmfile.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace nmtest;
namespace ew = envelope_writer;

namespace {

const std::string kCorrupt = "Input file is corrupt";
const std::string kMismatch = "Passphrase doesn't match";

ew::EnvelopeOptions keyed(char keyByte, bool sideFile = false) {
  ew::EnvelopeOptions opts;
  opts.fileKey = std::string(16, keyByte);
  opts.sideFile = sideFile;
  return opts;
}

std::string patched(std::string data, size_t fromEnd, const std::string &bytes) {
  data.replace(data.size() - fromEnd, bytes.size(), bytes);
  return data;
}

struct FileCase {
  const char *name;
  std::string envelope;  // bytes of the envelope
  std::string side;      // bytes of its side file; none when empty
  const char *passphrase;
  uint32_t rc;
  std::string message;   // for failures
};

// payload: the plaintext encrypted by the writer under key '1'.
std::vector<FileCase> fileCases(const std::string &payload) {
  const ew::EnvelopeOptions k1 = keyed('1'), k2 = keyed('2');
  const size_t n = payload.size();
  const std::string full = payload + ew::buildTrailer(n, "A", k1);
  ew::EnvelopeOptions wide = k1, fits = k1;
  wide.records = {ew::ExtraRecord{0x0001, false, "", ew::Digest::Sha256, 4050, 0},
                  ew::ExtraRecord{0x0001, false, "", ew::Digest::Sha256, 4050, 0}};
  fits.records = {ew::ExtraRecord{0x0001, false, "", ew::Digest::Sha256, 8072, 0}};
  const std::string sideA = ew::buildTrailer(n, "A", k1);
  const std::string sideB = ew::buildTrailer(n, "B", k1);
  return {
      {"trailer in the envelope", full, "", "A", 0, ""},
      {"trailer only in the side file", payload, sideA, "A", 0, ""},
      {"side file with bytes before its trailer", payload, "junk" + sideA, "A", 0, ""},
      {"envelope mismatch, side file matches", full, sideB, "B", 0, ""},
      {"envelope's trailer wins over a side file",
       full, ew::buildTrailer(n, "A", k2), "A", 0, ""},
      {"mismatch without side file", full, "", "B", 1, kMismatch},
      {"mismatch, side file corrupt", full, "not a trailer", "B", 2, kCorrupt},
      {"corrupt, side file mismatch", payload, sideA, "B", 1, kMismatch},
      {"119 bytes", std::string(119, '\0'), "", "A", 2, kCorrupt},
      {"120-byte main record, empty payload", ew::buildTrailer(0, "A", k1), "", "A", 0, ""},
      {"no magic at the end", full + "abcdefgh", "", "A", 2, kCorrupt},
      {"main record length 121", patched(full, 6, std::string("\x00\x79", 2)), "", "A", 2,
       kCorrupt},
      {"slot tag instead of main tag", patched(full, 8, "\x81\x07"), "", "A", 2, kCorrupt},
      {"record length below 8", patched(full, 6, std::string("\x80\x04", 2)), "", "A", 2,
       kCorrupt},
      {"trailer of 8,192 bytes", payload + ew::buildTrailer(n, "A", fits), "", "A", 0,
       ""},
      {"main record beyond the last 8,192 bytes",
       payload + ew::buildTrailer(n, "A", wide), "", "A", 2, kCorrupt},
  };
}

void testFileCases() {
  TempDir dir;
  const std::string plain = ew::patternString(0, 70000);
  CHECK(ew::writeEnvelope(dir.file("ref"), plain, "A", keyed('1')), "writer");
  const std::string payload = readFile(dir.file("ref")).substr(0, plain.size());
  for (const FileCase &c : fileCases(payload)) {
    const std::string path = dir.file("case.nimbra-env");
    writeFile(path, c.envelope);
    std::remove((path + ".nmb-meta").c_str());
    if (!c.side.empty()) writeFile(path + ".nmb-meta", c.side);
    Decrypted d = decryptFile(path, c.passphrase, {1024});
    CHECK_EQ(d.openRc, c.rc, c.name);
    if (c.rc != 0) CHECK_EQ(d.message, c.message, c.name);
    else if (c.envelope.size() > 120) CHECK(d.plaintext == plain, c.name);
    else CHECK(d.plaintext.empty() && d.readRc == 0, c.name);
  }
}

struct ProbeCase {
  const char *name;
  std::string content;  // "<dir>" makes a folder, "<none>" nothing
  std::string side;
  uint32_t rc;
};

void testProbe() {
  TempDir dir;
  const std::string trailer = ew::buildTrailer(3, "A");
  const std::vector<ProbeCase> cases = {
      {"envelope", "abc" + trailer, "", 0},
      {"envelope, other passphrase", "abc" + ew::buildTrailer(3, "zz"), "", 0},
      {"payload with side file", "abc", trailer, 0},
      {"side file alone", trailer, "", 0},
      {"text file", std::string(500, 't'), "", 5},
      {"text file, corrupt side file", std::string(500, 't'), std::string(300, 's'), 5},
      {"119 bytes", trailer.substr(1), "", 5},
      {"empty file", "", "", 5},
      {"missing path", "<none>", "", 3},
      {"folder", "<dir>", "", 3},
  };
  for (const ProbeCase &c : cases) {
    const std::string path = dir.file(std::string(c.name) + ".nimbra-env");
    if (c.content == "<dir>") CHECK_EQ(mkdir(path.c_str(), 0700), 0, c.name);
    else if (c.content != "<none>") writeFile(path, c.content);
    if (!c.side.empty()) writeFile(path + ".nmb-meta", c.side);
    uint32_t sysError = 0;
    CHECK_EQ(nm_crypto_dec_probe(path.c_str(), &sysError), c.rc, c.name);
    if (c.rc == 3) CHECK(sysError != 0, c.name);
  }
  uint32_t sysError = 0;
  CHECK_EQ(nm_crypto_dec_probe(dir.file("none").c_str(), &sysError), 3u, "missing");
  CHECK_EQ(sysError, static_cast<uint32_t>(ENOENT), "missing: system error");
}

// Read seam: fails the system read number failAt (0 is the first) with EIO.
int g_calls = 0, g_failAt = -1;

long failingRead(intptr_t handle, void *buffer, size_t size) {
  if (g_calls++ == g_failAt) {
    errno = EIO;
    return -1;
  }
  return ::read(static_cast<int>(handle), buffer, size);
}

void testReadFailures() {
  TempDir dir;
  const std::string path = dir.file("io.nimbra-env"), plain = ew::patternString(0, 200000);
  CHECK(ew::writeEnvelope(path, plain, "p"), "write");
  const std::string eio = "Input/output error";
  nm_file_set_read_fn(failingRead);
  g_calls = 0, g_failAt = 0;  // the tail
  Decrypted tail = decryptFile(path, "p");
  CHECK(tail.openRc == 3 && tail.sysError == EIO, "tail read: " + tail.message);
  CHECK_EQ(tail.message, "Cannot read file: " + eio, "tail read");
  for (int failAt : {1, 2, 4}) {  // first, second and last payload read; the next call carries on
    g_calls = 0, g_failAt = failAt;
    nm_crypto_dec_t *dec = nm_crypto_dec_new();
    CHECK_EQ(nm_crypto_dec_open("p", path.c_str(), dec, nullptr), 0u, "open");
    std::string got;
    std::vector<char> buffer(1024);
    uint64_t count = 1;
    int failures = 0;
    while (count != 0) {
      uint32_t rc = nm_crypto_dec_read(dec, buffer.data(), buffer.size(), &count);
      if (rc != 0) {
        ++failures;
        CHECK_EQ(std::string(nm_crypto_dec_error_text(dec)), "Cannot read file" + eio, "message");
        count = 1;
        continue;
      }
      got.append(buffer.data(), count);
    }
    nm_crypto_dec_free(&dec);
    CHECK(failures == 1 && got == plain, "payload read " + std::to_string(failAt));
  }
  nm_file_set_read_fn(nullptr);
}

void testShortPayloadAndOpenFailure() {
  TempDir dir;
  const std::string path = dir.file("short.nimbra-env");
  CHECK(ew::writePatternEnvelope(path, 100000, "p", keyed('1', true)), "write");
  writeFile(path, readFile(path).substr(0, 90000));
  Decrypted d = decryptFile(path, "p", {65536});
  CHECK(d.openRc == 0 && d.readRc == 3 && d.plaintext.size() == 65536, "short payload");
  CHECK_EQ(d.message, std::string("Read failed"), "short payload");
  Decrypted missing = decryptFile(dir.file("none"), "p");
  CHECK(missing.openRc == 3 && missing.sysError == ENOENT, "missing file");
  CHECK_EQ(missing.message, std::string("Cannot open file: No such file or directory"), "missing");
}

}  // namespace

int main() {
  return runCases({{"trailers, side files and corruption", testFileCases},
                   {"probe", testProbe},
                   {"read failures", testReadFailures},
                   {"short payload and open failure", testShortPayloadAndOpenFailure}});
}

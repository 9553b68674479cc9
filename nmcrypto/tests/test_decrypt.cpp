// The decrypter (its trailer walk meets hostile tails in the regression
// inputs of fuzz_replay_trailer_walk). Envelopes from the independent writer
// decrypt exactly for every length edge, read-size sequence and buffer
// alignment; files cover the key slots, the side-file rule, the 8,192-byte
// tail, the layout, the probe and every failure with its code and message.
// Known-answer vectors computed outside this code base pin the format
// itself, so writer and decrypter can't agree on a mistake.
#include "nmcrypto/nmcrypto_dec.h"
#include "nmcrypto_seams.h"
#include "nmkeystream.h"
#include "nmkeystream_wide.h"

#include "envelope_writer/EnvelopeWriter.h"
#include "nmplatform/nmfile.h"

#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <unistd.h>

namespace ew = envelope_writer;

namespace {

const std::string kNone = "<none>";

// A trailer in version 2 with the flag bit set: the main slot opens with
// passphrase by digest, records follow it; file key `key`.
std::string trailer(size_t length, const char *passphrase, std::vector<ew::ExtraRecord> records = {},
                    ew::Digest digest = ew::Digest::Sha256, char key = '1') {
  ew::EnvelopeOptions opts;
  opts.fileKey = std::string(16, key);
  opts.records = std::move(records);
  opts.digest = digest;
  opts.magic = ew::kMagicV2;
  opts.flagBit = true;
  return ew::buildTrailer(length, passphrase, opts);
}

// Puts content at path, or nothing for kNone.
void place(const std::string &path, const std::string &content) {
  unlink(path.c_str());
  if (content != kNone) std::ofstream(path, std::ios::binary) << content;
}

// Read, status and seek seams: call number g_failAt (0 is the first) of
// operation g_failOp fails with EIO; kRead stands for the system reads.
const int kRead = 0;
int g_failOp = kRead, g_calls = 0, g_failAt = -1;

bool failNow(int op) { return op == g_failOp && g_calls++ == g_failAt; }

long failingRead(intptr_t handle, void *buffer, size_t size) {
  return failNow(kRead) ? (errno = EIO, -1) : ::read(static_cast<int>(handle), buffer, size);
}

uint32_t failingCall(int op, intptr_t, const char *, size_t *) { return failNow(op) ? EIO : 0; }

struct FileCase {
  std::string envelope, side;  // contents; side is the ".nmb-meta" file
  uint32_t rc;                 // the open's, or the first failed read's
  QByteArray message;
  size_t delivered;            // plaintext bytes
  uint32_t probe;
  uint64_t trailerAt;          // the layout's: where the trailer stood; 0 when not opened
  int fips = 0;                // FIPS mode forced on
  int failOp = kRead, failAt = -1;  // the read, status or seek call that fails
};

struct Decrypted {
  uint32_t openRc = 0, readRc = 0, sysError = 0;  // readRc: the last read's
  nm_crypto_layout_t layout;                      // as the open recorded it; zeroed if it failed
  QByteArray message;
  std::string plaintext;
  bool strayWrites = false;  // a read wrote outside what the contract allows
};

const uint8_t kUntouched = 0xE7;

// Opens path and reads to the end or the first failure, asking for sizes in
// turn (cycled), into a buffer offset bytes past a 64-byte boundary. Every
// read must leave the bytes before the buffer, past its size, and more than
// 15 past the count delivered as they were.
Decrypted decryptFile(const std::string &path, const char *passphrase,
                      const std::vector<size_t> &sizes = {1024}, size_t offset = 0) {
  Decrypted d;
  nm_crypto_dec_t *dec = nm_crypto_dec_new();
  d.openRc = nm_crypto_dec_open(passphrase, path.c_str(), dec, &d.sysError);
  nm_crypto_dec_layout(dec, &d.layout);
  std::vector<uint8_t> storage(70000 + 512, kUntouched);
  uint8_t *buffer = storage.data() + offset + 64 - reinterpret_cast<uintptr_t>(storage.data()) % 64;
  uint64_t count = d.openRc == 0;
  for (size_t i = 0; count != 0 && d.readRc == 0; ++i) {
    const size_t size = sizes[i % sizes.size()];
    uint8_t *end = buffer + size + 256;  // a stray write lands near the buffer, if anywhere
    d.readRc = nm_crypto_dec_read(dec, buffer, size, &count);
    const auto changed = [](uint8_t b) { return b != kUntouched; };
    uint8_t *allowed = buffer + std::min<uint64_t>(size, d.readRc ? 0 : count + 15);
    d.strayWrites = d.strayWrites || std::any_of(storage.data(), buffer, changed) ||
                    std::any_of(allowed, end, changed);
    if (d.readRc == 0) d.plaintext.append(reinterpret_cast<char *>(buffer), count);
    std::fill(buffer, end, kUntouched);
  }
  d.message = nm_crypto_dec_error_text(dec);
  nm_crypto_dec_free(&dec);
  return d;
}

}  // namespace

Q_DECLARE_METATYPE(FileCase)

class TestDecrypt : public QObject {
  Q_OBJECT
  QTemporaryDir dir_;
  std::string plain_ = ew::patternString(0, 70000), payload_;  // payload_: plain_ under key '1'
  std::string path(const QString &name) const { return dir_.filePath(name).toStdString(); }

private Q_SLOTS:
  void initTestCase() {
    ew::EnvelopeOptions opts;
    opts.fileKey = std::string(16, '1');
    opts.sideFile = true;  // so the envelope is the payload alone
    QVERIFY(ew::writeEnvelope(path("ref"), plain_, "A", opts));
    std::ifstream in(path("ref"), std::ios::binary);
    payload_.assign(std::istreambuf_iterator<char>(in), {});
    nm_file_set_read_fn(failingRead);  // passes every read through unless a row says otherwise
    nm_file_set_fault_fn(failingCall);
  }

  void lengths_data() {
    QTest::addColumn<qulonglong>("length");
    QTest::addColumn<bool>("wide");  // the processor's vector path, else OpenSSL's
    for (bool wide : {false, true})
      for (qulonglong n : {0, 1, 15, 16, 17, 127, 128, 129, 259, 511, 512, 513, 65535, 65536, 65537,
                           65636, 2 * 65536 + 15, 3 * 1048576 + 7})
        QTest::addRow("%llu%s", n, wide ? ", wide" : "") << n << wide;
  }

  // The same plaintext whatever the sequence of read sizes and the buffer's alignment.
  void lengths() {
    QFETCH(qulonglong, length);
    QFETCH(bool, wide);
    if (wide && !nm_wide_available()) QSKIP("this processor has no 512-bit vector AES");
    QVERIFY(ew::writePatternEnvelope(path("lengths"), length, "pass"));
    const std::vector<std::pair<std::vector<size_t>, size_t>> patterns = {
        {{1024}, 0}, {{128}, 3}, {{65536}, 0}, {{70000}, 5},
        {{128, 70000, 1000, 129, 65536, 4097, 200}, 1}, {{4096, 130, 65535, 128, 1024}, 0},
        {{133, 130}, 0}};  // the end's last block rounded up would pass the size
    nm_keystream_allow_wide(wide);
    for (const auto &p : patterns) {
      Decrypted d = decryptFile(path("lengths"), "pass", p.first, p.second);
      QCOMPARE(d.openRc + d.readRc, 0u);
      QVERIFY(d.plaintext == ew::patternString(0, length));
      QVERIFY(!d.strayWrites);
    }
    nm_keystream_allow_wide(true);
  }

  void arguments() {
    const std::string name = path("ref");
    const char *file = name.c_str();
    nm_crypto_dec_t *dec = nm_crypto_dec_new();
    char buffer[1024];
    uint64_t count = 0;
    QCOMPARE(nm_crypto_dec_read(dec, buffer, sizeof buffer, &count), 6u);  // never opened
    QCOMPARE(nm_crypto_dec_open("A", file, nullptr, nullptr), 6u);
    QCOMPARE(nm_crypto_dec_read(nullptr, buffer, sizeof buffer, &count), 6u);
    QCOMPARE(nm_crypto_dec_open("A", file, dec, nullptr), 0u);
    QCOMPARE(nm_crypto_dec_read(dec, buffer, 127, &count), 6u);
    QCOMPARE(nm_crypto_dec_error_text(dec), "Output buffer too small");
    QCOMPARE(nm_crypto_dec_read(dec, nullptr, sizeof buffer, &count), 6u);
    nm_crypto_dec_free(&dec);
    QVERIFY(dec == nullptr);
    nm_crypto_dec_free(&dec);
    nm_crypto_dec_free(nullptr);
  }

  void files_data() {
    QTest::addColumn<FileCase>("c");
    const size_t n = plain_.size();
    const uint64_t side = NM_CRYPTO_TRAILER_IN_SIDE_FILE;
    const ew::Digest sha = ew::Digest::Sha256, md5 = ew::Digest::Md5;
    auto slot = [](const char *passphrase, ew::Digest digest) {
      return ew::ExtraRecord{ew::kTagKeySlot, true, passphrase, digest};
    };
    auto unknown = [sha](size_t length) { return ew::ExtraRecord{0x0001, false, "", sha, length}; };
    const std::string full = payload_ + trailer(n, "A"), other = payload_ + trailer(n, "B");
    const QByteArray corrupt = "Input file is corrupt", mismatch = "Passphrase doesn't match",
                     fips = mismatch + " or file was encrypted using out of date software";
    auto row = [](const char *name, const FileCase &c) { QTest::newRow(name) << c; };
    // Call number at of operation op fails after delivered plaintext bytes.
    auto fault = [&](const char *name, const char *message, int op, int at, size_t delivered = 0) {
      row(name, {full, kNone, 3, message, delivered, 0, delivered ? n : 0, 0, op, at});
    };
    const std::vector<ew::ExtraRecord> records = {slot("a", sha), unknown(64), slot("b", md5), unknown(8),
                                                  slot("A", sha)};
    row("last slot behind unknown records", {payload_ + trailer(n, "x", records), kNone, 0, {}, n, 0, n});
    row("MD5 slot", {payload_ + trailer(n, "x", {slot("A", md5)}, md5), kNone, 0, {}, n, 0, n});
    // The key check value is made by the main slot's digest, SHA-256 here.
    row("slot of the other digest",
        {payload_ + trailer(n, "x", {slot("A", md5)}), kNone, 1, mismatch, 0, 0, 0});
    row("FIPS, MD5", {payload_ + trailer(n, "A", {}, md5), kNone, 1, fips, 0, 0, 0, 1});
    row("junk before the trailer", {payload_ + "junk" + trailer(n, "A"), kNone, 0, {}, n, 0, n + 4});
    row("own mismatch, side matches", {other, trailer(n, "A"), 0, {}, n, 0, side});
    row("own trailer wins", {full, trailer(n, "A", {}, sha, '2'), 0, {}, n, 0, n});
    row("mismatch, side corrupt", {other, "not a trailer", 2, corrupt, 0, 0, 0});
    row("119 bytes", {std::string(119, 0), kNone, 2, corrupt, 0, 5, 0});
    row("trailer of 8,192 bytes", {payload_ + trailer(n, "A", {unknown(8072)}), kNone, 0, {}, n, 0, n});
    row("main record 8,193 bytes from the end",
        {payload_ + trailer(n, "A", {unknown(8073)}), kNone, 2, corrupt, 0, 5, 0});
    row("missing", {kNone, kNone, 3, "Cannot open file: No such file or directory", 0, 3, 0});
    fault("tail read fails", "Cannot read file: Input/output error", kRead, 0);
    fault("status fails", "Cannot examine file: Input/output error", NM_FILE_OP_STAT, 0);
    fault("seek to the tail fails", "Cannot seek in file: Input/output error", NM_FILE_OP_SEEK, 0);
    fault("seek to the payload fails", "Cannot seek in file: Input/output error", NM_FILE_OP_SEEK, 1);
    fault("last payload read fails", "Cannot read fileInput/output error", kRead, 2, 65536);
    row("payload cut short",
        {payload_.substr(0, 66000), trailer(n, "A"), 3, "Read failed", 65536, 0, side});
  }

  // Opened with "A", then probed, which needs no passphrase. The layout tells
  // L, where the trailer stood and the envelope as it was opened.
  void files() {
    QFETCH(FileCase, c);
    const std::string name = path("case.nimbra-env");
    place(name, c.envelope);
    place(name + ".nmb-meta", c.side);
    g_calls = 0, g_failOp = c.failOp, g_failAt = c.failAt;
    nm_crypto_dec_force_fips(c.fips);
    Decrypted d = decryptFile(name, "A");
    nm_crypto_dec_force_fips(-1);
    g_failAt = -1;
    QCOMPARE(d.openRc ? d.openRc : d.readRc, c.rc);
    QCOMPARE(d.message, c.message);  // none after success, even through the side file
    QCOMPARE(d.sysError != 0, d.openRc == 3);
    QVERIFY(d.plaintext == plain_.substr(0, c.delivered));  // all of it right up to a failure
    QCOMPARE(d.layout.trailer_offset, c.trailerAt);
    QCOMPARE(d.layout.length, c.trailerAt ? uint64_t(plain_.size()) : 0u);
    nm_file_identity_t file;
    QCOMPARE(nm_file_identify_path(name.c_str(), 0, &file) == 0 &&
                 nm_file_identity_same(&d.layout.envelope, &file), d.openRc == 0);
    QCOMPARE(nm_crypto_dec_probe(name.c_str(), nullptr), c.probe);
  }

  void knownAnswer_data() {
    QTest::addColumn<bool>("wide");  // the processor's vector path, else OpenSSL's
    QTest::newRow("OpenSSL") << false;
    QTest::newRow("wide") << true;
  }

  // An envelope built byte by byte outside this code base: SHA-256 main slot,
  // two chunks, the second ending mid-block. Then a chunk number far beyond
  // any test file, where every byte of the counter counts.
  void knownAnswer() {
    QFETCH(bool, wide);
    if (wide && !nm_wide_available()) QSKIP("this processor has no 512-bit vector AES");
    place(path("kat"), QByteArray::fromHex(
        "827fcc658254fdc1b885f0fcde75231939b1d8868375658a40d3784c3378307544cc048f86103b53ddc5"
        "8c8cde11a38c557fc89f5ca705b693a62ecd39a994ea19d3c775302db1f4a733e43a357bdedaf47a1a31"
        "3a98c22c532d3b4a9cc2fa3a1005d201fe88c5f1bff4050129af52e0c8c38df27fe951e53fc8ccefacb5"
        "106046f3d2633a0daf83aa7c593dfdc757000000000000008fa0a1a2a3a4a5a6a7a8a9aaabacadaeaf75"
        "3928439c033274be169bf5642b797d094bff23639666c9e715584d39680467303132333435363738393a"
        "3b3c3d3e3f000000000000000000000000000000000000000000000000000000000000000000010002"
        "0003000481060078b10bb10b").toStdString());
    nm_keystream_allow_wide(wide);
    Decrypted d = decryptFile(path("kat"), "kat passphrase", {128}, 1);
    QCOMPARE(d.openRc + d.readRc, 0u);
    QCOMPARE(QByteArray::fromStdString(d.plaintext),
             QByteArray("Known answer: 128-byte chunks, counter XORed big-endian into the IV, "
                        "ciphertext fed back, keystream plus 0x5A. The second chunk ends "
                        "mid-block."));
    const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f"),
                     iv = QByteArray::fromHex("f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
    uint8_t data[17], scratch[NM_KEYSTREAM_SCRATCH];
    for (int i = 0; i < 16; ++i) data[i + 1] = static_cast<uint8_t>(i * 131 + 7);
    nm_keystream_t stream = {};
    QCOMPARE(nm_keystream_setup(&stream, reinterpret_cast<const uint8_t *>(key.constData())), 0);
    nm_keystream_allow_wide(true);
    QCOMPARE(stream.wide != 0, wide);
    QCOMPARE(nm_keystream_decrypt(&stream, reinterpret_cast<const uint8_t *>(iv.constData()),
                                  0x91a2b3c4d5e6f00, data + 1, data + 1, 16, scratch), 0);
    nm_keystream_free(&stream);  // in place, from an odd address
    QCOMPARE(QByteArray(reinterpret_cast<char *>(data + 1), 16).toHex(),
             QByteArray("58835e072f16b52b7c9316e225d98b9a"));
  }
};

QTEST_APPLESS_MAIN(TestDecrypt)
#include "test_decrypt.moc"

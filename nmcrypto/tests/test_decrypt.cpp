// The decrypter (its trailer walk meets hostile tails in the regression
// inputs of fuzz_replay_trailer_walk). Envelopes from the independent writer
// decrypt exactly for every length edge, read-size sequence, buffer alignment
// and winning key slot; files cover the side-file rule, the 8,192-byte tail,
// the layout, the probe and every failure with its code and message. Known-answer vectors computed outside this code base pin
// the format itself, so writer and decrypter can't agree on a mistake.
#include "nmcrypto/nmcrypto_dec.h"
#include "nmcrypto_seams.h"
#include "nmkeystream.h"
#include "nmkeystream_wide.h"

#include "envelope_writer/EnvelopeWriter.h"
#include "nmplatform/nmfile.h"

#include <QtTest>
#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <unistd.h>

namespace ew = envelope_writer;

namespace {

const std::string kNone = "<none>";

// A trailer for file key `key`, with one unknown record of extra bytes (none when 0).
std::string trailer(size_t length, const char *passphrase, size_t extra = 0, char key = '1') {
  ew::EnvelopeOptions opts;
  opts.fileKey = std::string(16, key);
  if (extra) opts.records = {ew::ExtraRecord{0x0001, false, "", ew::Digest::Sha256, extra}};
  return ew::buildTrailer(length, passphrase, opts);
}

// Puts content at path, or nothing for kNone.
void place(const std::string &path, const std::string &content) {
  unlink(path.c_str());
  if (content != kNone) std::ofstream(path, std::ios::binary) << content;
}

// Read seam: fails the system read number g_failAt (0 is the first) with EIO.
int g_calls = 0, g_failAt = -1;

long failingRead(intptr_t handle, void *buffer, size_t size) {
  return g_calls++ != g_failAt ? ::read(static_cast<int>(handle), buffer, size) : (errno = EIO, -1);
}

// Status and seek seam: fails call number g_faultAt of operation g_faultOp with EIO.
int g_faultOp = 0, g_faultCalls = 0, g_faultAt = -1;

uint32_t failingCall(int op, intptr_t, const char *, size_t *) {
  return op == g_faultOp && g_faultCalls++ == g_faultAt ? EIO : 0;
}

// An envelope whose main slot opens with mainPassphrase by digest, more
// records after it, all in version 2 with the flag bit set; opened with
// "right", FIPS mode forced on or off.
struct SlotCase {
  std::string mainPassphrase;
  ew::Digest digest;
  std::vector<ew::ExtraRecord> records;
  int fips;
  QByteArray message;  // empty: opens
};

struct FileCase {
  std::string envelope, side;  // contents; side is the ".nmb-meta" file
  uint32_t rc;                 // the open's, or the first failed read's
  QByteArray message;
  size_t delivered;            // plaintext bytes
  uint32_t probe;
  uint64_t trailerAt;          // the layout's: where the trailer stood; 0 when not opened
  int failAt = -1;             // the system read that fails
  int faultOp = 0, faultAt = -1;  // the status or seek call that fails
};

struct Decrypted {
  uint32_t openRc = 0, readRc = 0, sysError = 0;  // readRc: the first failed read's
  uint32_t layoutRc = 0;
  nm_crypto_layout_t layout;                      // as the open recorded it
  QByteArray message;
  std::string plaintext;
  std::vector<uint64_t> counts;
  bool strayWrites = false;  // a read wrote outside what the contract allows
};

const uint8_t kUntouched = 0xE7;

// Opens path and reads to the end, asking for sizes in turn (cycled), into a
// buffer offset bytes past a 64-byte boundary. A failed read is tried once more.
// Every read must leave the bytes before the buffer, past its size, and more
// than 15 past the count delivered as they were.
Decrypted decryptFile(const std::string &path, const char *passphrase,
                      const std::vector<size_t> &sizes = {1024}, size_t offset = 0) {
  Decrypted d;
  nm_crypto_dec_t *dec = nm_crypto_dec_new();
  d.openRc = nm_crypto_dec_open(passphrase, path.c_str(), dec, &d.sysError);
  d.layoutRc = nm_crypto_dec_layout(dec, &d.layout);
  std::vector<uint8_t> storage(70000 + 512, kUntouched);
  uint8_t *buffer = storage.data() + offset + 64 - reinterpret_cast<uintptr_t>(storage.data()) % 64;
  uint64_t count = d.openRc == 0;
  for (size_t i = 0, failures = 0; count != 0 && failures < 2; ++i) {
    const size_t size = sizes[i % sizes.size()];
    uint8_t *end = buffer + size + 256;  // a stray write lands near the buffer, if anywhere
    const uint32_t rc = nm_crypto_dec_read(dec, buffer, size, &count);
    const auto changed = [](uint8_t b) { return b != kUntouched; };
    uint8_t *allowed = buffer + std::min<uint64_t>(size, rc ? 0 : count + 15);
    d.strayWrites = d.strayWrites || std::any_of(storage.data(), buffer, changed) ||
                    std::any_of(allowed, end, changed);
    d.readRc = d.readRc ? d.readRc : rc;
    failures += rc != 0;
    if (rc != 0) count = 1;
    else d.plaintext.append(reinterpret_cast<char *>(buffer), count), d.counts.push_back(count);
    std::fill(buffer, end, kUntouched);
  }
  d.message = nm_crypto_dec_error_text(dec);
  nm_crypto_dec_free(&dec);
  return d;
}

}  // namespace

Q_DECLARE_METATYPE(SlotCase)
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

  // The same plaintext whatever the sequence of read sizes and the buffer's alignment;
  // 1,024-byte reads take each 64 KiB buffer in full reads, then its rest.
  void lengths() {
    QFETCH(qulonglong, length);
    QFETCH(bool, wide);
    if (wide && !nm_wide_available()) QSKIP("this processor has no 512-bit vector AES");
    QVERIFY(ew::writePatternEnvelope(path("lengths"), length, "pass"));
    std::vector<std::pair<std::vector<size_t>, size_t>> patterns = {
        {{1024}, 0}, {{128}, 3}, {{65536}, 0}, {{70000}, 5},
        {{128, 70000, 1000, 129, 65536, 4097, 200}, 1}, {{4096, 130, 65535, 128, 1024}, 0},
        {{133, 130}, 0}};  // the end's last block rounded up would pass the size
    std::vector<size_t> mixed;  // sizes from 128 to 70,000, most of them odd
    for (uint32_t i = 0, x = 12345; i < 40; ++i, x = x * 1103515245u + 12345u)
      mixed.push_back(128 + (x >> 8) % (i % 4 ? 700 : 69872));
    patterns.push_back({mixed, 7});
    nm_keystream_allow_wide(wide);
    for (const auto &p : patterns) {
      Decrypted d = decryptFile(path("lengths"), "pass", p.first, p.second);
      QCOMPARE(d.openRc + d.readRc, 0u);
      QVERIFY(d.plaintext == ew::patternString(0, length));
      QVERIFY(!d.strayWrites);
    }
    std::vector<uint64_t> counts(64, 1024);
    counts.insert(counts.end(), {100, 0});
    QVERIFY(length != 65636 || decryptFile(path("lengths"), "pass").counts == counts);
    nm_keystream_allow_wide(true);
  }

  void arguments() {
    const std::string name = path("ref");
    const char *file = name.c_str();
    nm_crypto_dec_t *dec = nm_crypto_dec_new();
    char buffer[1024];
    uint64_t count = 0;
    QCOMPARE(nm_crypto_dec_open("A", file, nullptr, nullptr), 6u);
    QCOMPARE(nm_crypto_dec_read(nullptr, buffer, sizeof buffer, &count), 6u);
    QCOMPARE(nm_crypto_dec_open("A", file, dec, nullptr), 0u);
    QCOMPARE(nm_crypto_dec_open("A", file, dec, nullptr), 6u);  // already open
    QCOMPARE(nm_crypto_dec_read(dec, buffer, 127, &count), 6u);
    QCOMPARE(nm_crypto_dec_error_text(dec), "Output buffer too small");
    QCOMPARE(nm_crypto_dec_read(dec, nullptr, sizeof buffer, &count), 6u);
    nm_crypto_dec_free(&dec);
    dec = nm_crypto_dec_new();
    QCOMPARE(nm_crypto_dec_read(dec, buffer, sizeof buffer, &count), 6u);  // never opened
    QCOMPARE(nm_crypto_dec_open("A", (name + ".missing").c_str(), dec, nullptr), 3u);
    QCOMPARE(nm_crypto_dec_read(dec, buffer, sizeof buffer, &count), 6u);
    QCOMPARE(nm_crypto_dec_error_text(dec), "Cannot open file: No such file or directory");
    nm_crypto_dec_free(&dec);
    QVERIFY(dec == nullptr);
    nm_crypto_dec_free(&dec);
    nm_crypto_dec_free(nullptr);
  }

  void keySlots_data() {
    QTest::addColumn<SlotCase>("c");
    const ew::Digest sha = ew::Digest::Sha256, md5 = ew::Digest::Md5;
    auto slot = [](const char *passphrase, ew::Digest digest) {
      return ew::ExtraRecord{ew::kTagKeySlot, true, passphrase, digest};
    };
    const QByteArray mismatch = "Passphrase doesn't match",
                     fips = mismatch + " or file was encrypted using out of date software";
    QTest::newRow("main slot") << SlotCase{"right", sha, {}, 0, {}};
    QTest::newRow("main slot, MD5") << SlotCase{"right", md5, {}, 0, {}};
    QTest::newRow("second record")
        << SlotCase{"x", sha, {slot("other", sha), slot("right", sha), slot("third", sha)}, 0, {}};
    QTest::newRow("last record behind unknown ones")
        << SlotCase{"x", sha, {slot("a", sha), {0x0001, false, "", sha, 64}, slot("b", md5),
                               {0x8108, false, "", sha, 8}, slot("right", sha)}, 0, {}};
    QTest::newRow("MD5 record") << SlotCase{"x", md5, {slot("right", md5)}, 0, {}};
    // The key check value is made by the main slot's digest, SHA-256 here.
    QTest::newRow("slot of the other digest") << SlotCase{"x", sha, {slot("right", md5)}, 0, mismatch};
    QTest::newRow("one byte off") << SlotCase{"riGht", sha, {}, 0, mismatch};
    QTest::newRow("FIPS, MD5") << SlotCase{"right", md5, {}, 1, fips};
    QTest::newRow("FIPS, SHA-256") << SlotCase{"right", sha, {}, 1, {}};
    QTest::newRow("FIPS, mismatch") << SlotCase{"x", sha, {}, 1, fips};
  }

  void keySlots() {
    QFETCH(SlotCase, c);
    ew::EnvelopeOptions opts;
    opts.digest = c.digest;
    opts.records = c.records;
    opts.magic = ew::kMagicV2;
    opts.flagBit = true;
    QVERIFY(ew::writeEnvelope(path("slots"), plain_, c.mainPassphrase, opts));
    nm_crypto_dec_force_fips(c.fips);
    Decrypted d = decryptFile(path("slots"), "right");
    nm_crypto_dec_force_fips(-1);
    QCOMPARE(d.openRc, c.message.isEmpty() ? 0u : 1u);
    QCOMPARE(d.message, c.message);
    QVERIFY(d.openRc != 0 || d.plaintext == plain_);
  }

  void files_data() {
    QTest::addColumn<FileCase>("c");
    const size_t n = plain_.size();
    const uint64_t side = NM_CRYPTO_TRAILER_IN_SIDE_FILE;
    const std::string full = payload_ + trailer(n, "A"), other = payload_ + trailer(n, "B");
    const QByteArray corrupt = "Input file is corrupt", mismatch = "Passphrase doesn't match",
                     eio = "Cannot read fileInput/output error";
    auto row = [](const char *name, const FileCase &c) { QTest::newRow(name) << c; };
    row("own trailer", {full, kNone, 0, {}, n, 0, n});
    row("junk before the trailer", {payload_ + "junk" + trailer(n, "A"), kNone, 0, {}, n, 0, n + 4});
    row("side file only", {payload_, trailer(n, "A"), 0, {}, n, 0, side});
    row("side file, junk first", {payload_, "junk" + trailer(n, "A"), 0, {}, n, 0, side});
    row("own mismatch, side matches", {other, trailer(n, "A"), 0, {}, n, 0, side});
    row("own trailer wins", {full, trailer(n, "A", 0, '2'), 0, {}, n, 0, n});
    row("mismatch", {other, kNone, 1, mismatch, 0, 0, 0});
    row("mismatch, side corrupt", {other, "not a trailer", 2, corrupt, 0, 0, 0});
    row("corrupt, side mismatch", {payload_, trailer(n, "B"), 1, mismatch, 0, 0, 0});
    row("119 bytes", {std::string(119, 0), kNone, 2, corrupt, 0, 5, 0});
    row("120 bytes, empty payload", {ew::buildTrailer(0, "A"), kNone, 0, {}, 0, 0, 0});
    row("text, side file text", {std::string(500, 't'), "text", 2, corrupt, 0, 5, 0});
    row("trailer of 8,192 bytes", {payload_ + trailer(n, "A", 8072), kNone, 0, {}, n, 0, n});
    row("main record 8,193 bytes from the end",
        {payload_ + trailer(n, "A", 8073), kNone, 2, corrupt, 0, 5, 0});
    row("missing", {kNone, kNone, 3, "Cannot open file: No such file or directory", 0, 3, 0});
    row("tail read fails", {full, kNone, 3, "Cannot read file: Input/output error", 0, 0, 0, 0});
    row("status fails", {full, kNone, 3, "Cannot examine file: Input/output error", 0, 0, 0, -1,
                         NM_FILE_OP_STAT, 0});
    row("seek to the tail fails", {full, kNone, 3, "Cannot seek in file: Input/output error", 0, 0,
                                   0, -1, NM_FILE_OP_SEEK, 0});
    row("seek to the payload fails", {full, kNone, 3, "Cannot seek in file: Input/output error", 0,
                                      0, 0, -1, NM_FILE_OP_SEEK, 1});
    row("first payload read fails", {full, kNone, 3, eio, n, 0, n, 1});
    row("last payload read fails", {full, kNone, 3, eio, n, 0, n, 2});
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
    g_calls = 0, g_failAt = c.failAt;
    g_faultCalls = 0, g_faultOp = c.faultOp, g_faultAt = c.faultAt;
    Decrypted d = decryptFile(name, "A");
    g_failAt = g_faultAt = -1;
    QCOMPARE(d.openRc ? d.openRc : d.readRc, c.rc);
    QCOMPARE(d.message, c.message);  // none after success, even through the side file
    QCOMPARE(d.sysError != 0, d.openRc == 3);
    QVERIFY(d.plaintext == plain_.substr(0, c.delivered));  // a failed read loses nothing
    QCOMPARE(d.layoutRc, d.openRc ? 6u : 0u);
    QCOMPARE(d.layout.trailer_offset, c.trailerAt);
    QCOMPARE(d.layout.length, c.trailerAt ? uint64_t(plain_.size()) : 0u);
    nm_file_identity_t file;
    QCOMPARE(nm_file_identify_path(name.c_str(), 0, &file) == 0 &&
                 nm_file_identity_same(&d.layout.envelope, &file), d.openRc == 0);
    uint32_t sysError = 0;
    QCOMPARE(nm_crypto_dec_probe(name.c_str(), &sysError), c.probe);
    QVERIFY(c.probe != 3 || sysError != 0);
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

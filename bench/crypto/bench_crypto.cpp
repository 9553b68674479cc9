// Decrypter throughput against OpenSSL's AES-128-CTR on the same file, and
// AES-128-ECB alone over the same bytes: the work of OpenSSL's block cipher
// without any chaining, the bound for a decrypter built on it.
// bench_crypto [MiB]  (default 256; NM_BENCH_DIR picks the scratch folder)
//
// The decrypter is pulled 1,024 bytes a call, as the decrypt worker does;
// CTR and ECB read the file 64 KiB at a time. Five interleaved rounds; each
// figure is the median of the rounds with its range.
#include "BenchStats.h"
#include "envelope_writer/EnvelopeWriter.h"
#include "nmcrypto/nmcrypto_dec.h"

#include <openssl/evp.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

// Decrypts the whole envelope; returns bytes delivered or 0 on failure.
uint64_t runDecrypter(const std::string &path) {
  nm_crypto_dec_t *dec = nm_crypto_dec_new();
  uint64_t total = 0, count = 1;
  alignas(64) static unsigned char buffer[1024];
  if (nm_crypto_dec_open("bench", path.c_str(), dec, nullptr) != NM_CRYPTO_OK) {
    std::fprintf(stderr, "open: %s\n", nm_crypto_dec_error_text(dec));
    count = 0;
  }
  while (count != 0) {
    if (nm_crypto_dec_read(dec, buffer, sizeof buffer, &count) != NM_CRYPTO_OK) {
      std::fprintf(stderr, "read: %s\n", nm_crypto_dec_error_text(dec));
      total = 0;
      break;
    }
    total += count;
  }
  nm_crypto_dec_free(&dec);
  return total;
}

// The file through cipher (CTR, or ECB without padding), 64 KiB at a time.
uint64_t runCipher(const std::string &path, const EVP_CIPHER *cipher) {
  static const unsigned char key[16] = {1}, iv[16] = {2};
  static unsigned char in[65536], out[65536];
  int fd = open(path.c_str(), O_RDONLY);
  EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
  EVP_EncryptInit_ex(ctx, cipher, nullptr, key, iv);
  EVP_CIPHER_CTX_set_padding(ctx, 0);
  uint64_t total = 0;
  ssize_t got;
  while (fd >= 0 && (got = read(fd, in, sizeof in)) > 0) {
    int produced = 0;
    // Whole blocks: ECB takes nothing else, and the file's last block is trailer.
    EVP_EncryptUpdate(ctx, out, &produced, in, static_cast<int>(got & ~15));
    total += static_cast<uint64_t>(got);
  }
  EVP_CIPHER_CTX_free(ctx);
  if (fd >= 0) close(fd);
  return total;
}

bool verifyStart(const std::string &path) {
  nm_crypto_dec_t *dec = nm_crypto_dec_new();
  std::vector<unsigned char> got(1 << 20), want(1 << 20);
  uint64_t count = 0;
  bool ok = nm_crypto_dec_open("bench", path.c_str(), dec, nullptr) == NM_CRYPTO_OK &&
            nm_crypto_dec_read(dec, got.data(), got.size(), &count) == NM_CRYPTO_OK;
  nm_crypto_dec_free(&dec);
  envelope_writer::patternBytes(0, want.data(), count);
  return ok && count > 0 && std::memcmp(got.data(), want.data(), count) == 0;
}

}  // namespace

int main(int argc, char **argv) {
  const uint64_t mib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 256;
  const char *dirEnv = std::getenv("NM_BENCH_DIR");
  const std::string path = std::string(dirEnv && *dirEnv ? dirEnv : "/tmp") + "/bench_crypto_" +
                           std::to_string(getpid()) + ".nimbra-env";
  std::string error;
  if (!envelope_writer::writePatternEnvelope(path, mib << 20, "bench", {}, &error)) {
    std::fprintf(stderr, "bench_crypto: %s\n", error.c_str());
    return 1;
  }
  const uint64_t bytes = mib << 20;
  const EVP_CIPHER *ctr = EVP_aes_128_ctr(), *ecb = EVP_aes_128_ecb();
  bool ok = verifyStart(path);
  bench::Figure decRate, ctrRate, ecbRate, vsCtr, vsEcb;
  for (int round = 0; ok && round < bench::kRounds; ++round) {
    bench::resetPeak();
    auto start = Clock::now();
    ok = runDecrypter(path) == bytes;
    const double dec = seconds(start);
    decRate.notePeak(bench::peakKiB());
    vsCtr.notePeak(bench::peakKiB());
    start = Clock::now();
    ok = ok && runCipher(path, ctr) > bytes;  // the file holds the trailer too
    const double ctrTime = seconds(start);
    start = Clock::now();
    ok = ok && runCipher(path, ecb) > bytes;
    const double ecbTime = seconds(start);
    decRate.add(bytes / dec / 1e6);
    ctrRate.add(bytes / ctrTime / 1e6);
    ecbRate.add(bytes / ecbTime / 1e6);
    vsCtr.add(ctrTime / dec);
    vsEcb.add(ecbTime / dec);
  }
  std::remove(path.c_str());
  if (!ok) {
    std::fprintf(stderr, "bench_crypto: decryption failed\n");
    return 1;
  }
  std::printf("%llu MiB envelope, page cache warm, %d interleaved rounds\n",
              static_cast<unsigned long long>(mib), bench::kRounds);
  bench::report("decrypter, 1,024-byte reads", decRate, "MB/s", "", 1);
  bench::report("AES-128-CTR, 64 KiB reads", ctrRate, "MB/s", "", 1);
  bench::report("AES-128-ECB alone, same bytes, 64 KiB reads", ecbRate, "MB/s", "", 1);
  bench::report("decrypter with 1,024-byte reads / AES-128-CTR", vsCtr, "x", ">= 1.0", 3, true);
  bench::report("decrypter / AES-128-ECB alone over the same bytes", vsEcb, "x", "", 3, true);
  return 0;
}

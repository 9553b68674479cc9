// Decrypter throughput against OpenSSL's AES-128-CTR on the same file.
// bench_crypto [MiB]  (default 256; NM_BENCH_DIR picks the scratch folder)
//
// The decrypter is pulled 1,024 bytes a call, as the decrypt worker does;
// AES-128-CTR reads the file 64 KiB at a time. Best of five interleaved rounds each.
// Goal: decrypter / CTR >= 0.85.
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

// AES-128-CTR over the whole file, read 64 KiB at a time.
uint64_t runCtr(const std::string &path, EVP_CIPHER *ctr) {
  static const unsigned char key[16] = {1}, iv[16] = {2};
  static unsigned char in[65536], out[65536];
  int fd = open(path.c_str(), O_RDONLY);
  EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
  EVP_DecryptInit_ex(ctx, ctr, nullptr, key, iv);
  uint64_t total = 0;
  ssize_t got;
  while (fd >= 0 && (got = read(fd, in, sizeof in)) > 0) {
    int produced = 0;
    EVP_DecryptUpdate(ctx, out, &produced, in, static_cast<int>(got));
    total += static_cast<uint64_t>(produced);
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
  EVP_CIPHER *ctr = EVP_CIPHER_fetch(nullptr, "AES-128-CTR", nullptr);
  bool ok = ctr && verifyStart(path);
  double bestDec = 1e30, bestCtr = 1e30;
  for (int round = 0; ok && round < 5; ++round) {
    auto start = Clock::now();
    ok = runDecrypter(path) == mib << 20;
    bestDec = std::min(bestDec, seconds(start));
    start = Clock::now();
    ok = ok && runCtr(path, ctr) > mib << 20;  // the file holds the trailer too
    bestCtr = std::min(bestCtr, seconds(start));
  }
  EVP_CIPHER_free(ctr);
  std::remove(path.c_str());
  if (!ok) {
    std::fprintf(stderr, "bench_crypto: decryption failed\n");
    return 1;
  }
  const double bytes = static_cast<double>(mib << 20);
  const double decRate = bytes / bestDec / 1e6, ctrRate = bytes / bestCtr / 1e6;
  std::printf("envelope: %llu MiB, decrypter with 1,024-byte reads\n",
              static_cast<unsigned long long>(mib));
  std::printf("decrypter:   %8.1f MB/s\n", decRate);
  std::printf("AES-128-CTR: %8.1f MB/s (64 KiB reads)\n", ctrRate);
  std::printf("ratio:       %8.3f (goal >= 0.85)\n", decRate / ctrRate);
  return 0;
}

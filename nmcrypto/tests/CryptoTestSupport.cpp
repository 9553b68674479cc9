#include "CryptoTestSupport.h"

#include <cstring>
#include <filesystem>

namespace nmtest {

TempDir::TempDir() {
  const char *base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/nmcrypto-XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) {
    std::perror("mkdtemp");
    std::abort();
  }
  path_ = buf.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream data;
  data << in.rdbuf();
  return data.str();
}

void writeFile(const std::string &path, const std::string &data) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
}

Decrypted decryptFile(const std::string &path, const std::string &passphrase,
                      const std::vector<size_t> &sizes, size_t offset) {
  Decrypted result;
  nm_crypto_dec_t *dec = nm_crypto_dec_new();
  result.openRc = nm_crypto_dec_open(passphrase.c_str(), path.c_str(), dec, &result.sysError);
  size_t largest = 0;
  for (size_t s : sizes) largest = std::max(largest, s);
  std::vector<uint8_t> storage(largest + offset + 64);
  uint8_t *buffer = storage.data() + (64 - reinterpret_cast<uintptr_t>(storage.data()) % 64) % 64 + offset;
  for (size_t i = 0; result.openRc == NM_CRYPTO_OK; ++i) {
    uint64_t count = 0;
    size_t size = sizes[i % sizes.size()];
    result.readRc = nm_crypto_dec_read(dec, buffer, size, &count);
    if (result.readRc != NM_CRYPTO_OK || count > size) break;
    if (count == 0) break;
    result.plaintext.append(reinterpret_cast<char *>(buffer), count);
  }
  result.message = nm_crypto_dec_error_text(dec);
  nm_crypto_dec_free(&dec);
  return result;
}

int runCases(const std::vector<std::pair<const char *, std::function<void()>>> &cases) {
  for (const auto &c : cases) {
    int before = failures();
    c.second();
    std::printf("%s %s\n", failures() == before ? "PASS" : "FAIL", c.first);
  }
  std::printf("%d failure(s)\n", failures());
  return failures() == 0 ? 0 : 1;
}

}  // namespace nmtest

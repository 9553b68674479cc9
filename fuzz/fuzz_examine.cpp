// Fuzz target: whole-file examining, opening and reading. The input is
// written to a file; with the first byte odd, bytes 1-2 (big-endian) give the
// envelope's length and the rest becomes its ".nmb-meta" side file. The
// passphrase is "fuzz", the seeds' own.
#include "nmcrypto/nmcrypto_dec.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

// A private folder for the input files, in memory where possible, removed at exit.
struct Scratch {
  const fs::path folder =
      (access("/dev/shm", W_OK) == 0 ? fs::path("/dev/shm") : fs::temp_directory_path()) /
      ("nm-fuzz-" + std::to_string(getpid()));
  const std::string path = (folder / "input.nimbra-env").string(), side = path + ".nmb-meta";
  Scratch() { fs::create_directories(folder); }
  ~Scratch() { fs::remove_all(folder); }
};

void writeAll(const std::string &path, const uint8_t *data, size_t size) {
  std::ofstream out(path, std::ios::binary);
  if (!out.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size))) abort();
}

}  // namespace

std::string g_outcome;  // results, plaintext hash and message, for the replay's expectations

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Scratch scratch;
  if (size == 0) return 0;
  size_t envelope = size - 1, start = 1;
  unlink(scratch.side.c_str());
  if ((data[0] & 1) && size >= 3) {
    start = 3;
    envelope = std::min((static_cast<size_t>(data[1]) << 8) | data[2], size - 3);
    writeAll(scratch.side, data + start + envelope, size - start - envelope);
  }
  writeAll(scratch.path, data + start, envelope);

  nm_crypto_dec_t *dec = nm_crypto_dec_new();
  uint32_t sys_error = 0, read = 0, hash = 2166136261u;  // FNV-1a of the plaintext
  const uint32_t open = nm_crypto_dec_open("fuzz", scratch.path.c_str(), dec, &sys_error);
  uint64_t count = open == 0, total = 0;
  static uint8_t buffer[1024];
  for (int reads = 0; count != 0 && read == 0; ++reads, total += count) {
    read = nm_crypto_dec_read(dec, buffer, sizeof buffer, &count);
    if (count > sizeof buffer || reads > 100000) abort();  // the payload is at most the input
    for (uint64_t i = 0; i < count; ++i) hash = (hash ^ buffer[i]) * 16777619u;
  }
  const char *message = nm_crypto_dec_error_text(dec);
  const uint32_t probe = nm_crypto_dec_probe(scratch.path.c_str(), &sys_error);
  if (strlen(message) > 255 || (probe != 0 && probe != 3 && probe != 5)) abort();
  char line[400];
  snprintf(line, sizeof line, "open=%u read=%u bytes=%llu fnv=%08x probe=%u '%s'", open, read,
           static_cast<unsigned long long>(total), hash, probe, message);
  g_outcome = line;
  nm_crypto_dec_free(&dec);
  return 0;
}

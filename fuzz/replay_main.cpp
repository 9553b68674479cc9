// Replays every file of the regression folders (NM_REGRESSION_DIR, or the
// folders and files given as arguments) through a fuzz target: the normal
// test suite keeps what the fuzzers once found fixed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fs = std::filesystem;

static int replay(const fs::path &file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(data.data(), data.size());
  return 1;
}

int main(int argc, char **argv) {
  std::vector<fs::path> roots;
  for (int i = 1; i < argc; ++i) roots.emplace_back(argv[i]);
  if (roots.empty()) roots.emplace_back(NM_REGRESSION_DIR);
  int count = 0;
  for (const fs::path &root : roots) {
    std::error_code error;
    if (fs::is_regular_file(root, error)) {
      count += replay(root);
      continue;
    }
    for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
         it.increment(error))
      if (it->is_regular_file()) count += replay(it->path());
    if (error) {
      std::fprintf(stderr, "cannot read %s: %s\n", root.c_str(), error.message().c_str());
      return 1;
    }
  }
  std::printf("replayed %d input(s)\n", count);
  return 0;
}

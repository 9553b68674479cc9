// Replays the regression folder NM_REGRESSION_DIR through a fuzz target, in
// name order, and compares what each input came to with the lines
// "<file> <outcome>" of NM_REGRESSION_DIR.expected: the normal test suite so
// keeps what the fuzzers once found fixed and what the seeds decrypt to.
// Given files as arguments, it prints their lines instead.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern std::string g_outcome;  // set by the target for its last input

namespace fs = std::filesystem;

static std::string readAll(const fs::path &file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

static std::string replay(const fs::path &file) {
  const std::string data = readAll(file);
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(data.data()), data.size());
  return file.filename().string() + ' ' + g_outcome + '\n';
}

int main(int argc, char **argv) {
  for (int i = 1; i < argc; ++i) std::fputs(replay(argv[i]).c_str(), stdout);
  if (argc > 1) return 0;
  std::vector<fs::path> files;
  for (const fs::directory_entry &entry : fs::directory_iterator(NM_REGRESSION_DIR))
    files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  std::string outcomes;
  for (const fs::path &file : files) outcomes += replay(file);
  if (outcomes != readAll(NM_REGRESSION_DIR ".expected")) {
    std::fprintf(stderr, "outcomes differ from %s.expected:\n%s", NM_REGRESSION_DIR, outcomes.c_str());
    return 1;
  }
  std::printf("replayed %zu input(s) as expected\n", files.size());
  return 0;
}

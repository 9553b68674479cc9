// Small table-driven test harness for the decrypter's tests: checks that
// report file and line, a temporary folder, file helpers and a read loop.
#ifndef NMCRYPTO_TESTS_CRYPTOTESTSUPPORT_H
#define NMCRYPTO_TESTS_CRYPTOTESTSUPPORT_H

#include "nmcrypto/nmcrypto_dec.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace nmtest {

inline int &failures() {
  static int count = 0;
  return count;
}

inline bool check(bool ok, const char *expr, const std::string &what, const char *file,
                  int line) {
  if (!ok) {
    ++failures();
    std::fprintf(stderr, "%s:%d: FAILED %s [%s]\n", file, line, expr, what.c_str());
  }
  return ok;
}

#define CHECK(cond, what) ::nmtest::check((cond), #cond, (what), __FILE__, __LINE__)
#define CHECK_EQ(a, b, what) ::nmtest::checkEq((a), (b), #a " == " #b, (what), __FILE__, __LINE__)

template <typename T> std::string show(const T &v);

template <typename A, typename B>
bool checkEq(const A &a, const B &b, const char *expr, const std::string &what, const char *file,
             int line) {
  return check(a == b, expr, what + ": got " + show(a) + ", want " + show(b), file, line);
}

template <typename T> inline std::string show(const T &v) {
  std::ostringstream out;
  out << v;
  return out.str();
}
template <> inline std::string show(const std::string &v) {
  return v.size() > 80 ? "<" + std::to_string(v.size()) + " bytes>" : "\"" + v + "\"";
}

// A fresh folder under $TMPDIR, removed with everything in it at the end.
class TempDir {
public:
  TempDir();
  ~TempDir();
  std::string file(const std::string &name) const { return path_ + "/" + name; }
  const std::string &path() const { return path_; }

private:
  std::string path_;
};

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &data);

struct Decrypted {
  uint32_t openRc = 0, readRc = 0;
  std::string message, plaintext;
  uint32_t sysError = 0;
};

// Opens path and reads it to the end, each read asking for the next size of
// sizes (cycled), into a buffer placed offset bytes past an aligned address.
Decrypted decryptFile(const std::string &path, const std::string &passphrase,
                      const std::vector<size_t> &sizes = {1024}, size_t offset = 0);

// Runs the named cases and returns the exit code for main.
int runCases(const std::vector<std::pair<const char *, std::function<void()>>> &cases);

}  // namespace nmtest

#endif

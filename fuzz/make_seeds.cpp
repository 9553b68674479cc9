// Writes the fuzzers' seed corpora from the envelope writer's output:
// fuzz_make_seeds <trailer-walk-dir> <examine-dir>
#include "envelope_writer/EnvelopeWriter.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace ew = envelope_writer;

namespace {

void save(const std::string &dir, const std::string &name, const std::string &data) {
  std::ofstream(dir + "/" + name, std::ios::binary) << data;
}

std::vector<std::pair<std::string, ew::EnvelopeOptions>> variants() {
  ew::ExtraRecord slot;
  ew::ExtraRecord md5Slot;
  md5Slot.digest = ew::Digest::Md5;
  md5Slot.usePassphrase = true;
  md5Slot.passphrase = "other";
  ew::ExtraRecord unknown;
  unknown.tag = 0x1234;
  unknown.length = 40;
  ew::EnvelopeOptions plain, md5, slots, v2;
  md5.digest = ew::Digest::Md5;
  slots.records = {md5Slot, unknown, slot};
  v2.magic = ew::kMagicV2;
  v2.flagBit = true;
  v2.records = {unknown, slot};
  return {{"plain", plain}, {"md5", md5}, {"slots", slots}, {"v2flag", v2}};
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fuzz_make_seeds <trailer-walk-dir> <examine-dir>\n");
    return 2;
  }
  const std::string walkDir = argv[1], examineDir = argv[2];
  const std::string tmp = examineDir + "/.seed.tmp";
  for (const auto &v : variants()) {
    save(walkDir, v.first, ew::buildTrailer(300, "fuzz", v.second));
    save(walkDir, v.first + "-prefixed", std::string(64, 'x') + ew::buildTrailer(1, "x", v.second));
    for (size_t size : {0, 1, 130, 300, 9000}) {
      if (!ew::writePatternEnvelope(tmp, size, "fuzz", v.second)) return 1;
      std::ifstream in(tmp, std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      const std::string name = v.first + "-" + std::to_string(size);
      save(examineDir, name, std::string(1, '\0') + bytes);
      // Payload and side file: odd first byte, then the envelope's length.
      std::string split = {'\1', static_cast<char>(size >> 8), static_cast<char>(size & 0xFF)};
      save(examineDir, name + "-side", split + bytes);
    }
  }
  std::remove(tmp.c_str());
  return 0;
}

// nm-envelope-writer: writes a test envelope from a file or a generated
// pattern. Developer tool for demos and manual checks.
#include "envelope_writer/EnvelopeWriter.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

using namespace envelope_writer;

namespace {

const char kUsage[] =
    "usage: nm-envelope-writer [options] (--input FILE | --size N) --passphrase P OUT\n"
    "  --md5                 main slot and key check use MD5 (default SHA-256)\n"
    "  --slot PASS[:md5]     add a key-slot record that opens with PASS (an MD5 slot\n"
    "                        opens only with --md5: the key check uses the main digest)\n"
    "  --unknown TAG:LEN     add a record with an unknown tag (decimal or 0x..)\n"
    "  --magic 1|2           trailer magic version (default 1)\n"
    "  --flag                set the flag bit of every length word\n"
    "  --side-file           write the trailer to OUT.nmb-meta\n"
    "  --seed N              seed of the key material (default 1)\n";

int usage(const std::string &why) {
  if (!why.empty()) std::cerr << "nm-envelope-writer: " << why << "\n";
  std::cerr << kUsage;
  return 2;
}

ExtraRecord slotRecord(const std::string &arg) {
  ExtraRecord rec;
  rec.usePassphrase = true;
  rec.passphrase = arg;
  size_t colon = arg.rfind(':');
  if (colon != std::string::npos && arg.substr(colon + 1) == "md5") {
    rec.passphrase = arg.substr(0, colon);
    rec.digest = Digest::Md5;
  }
  return rec;
}

bool unknownRecord(const std::string &arg, ExtraRecord *rec) {
  char *end = nullptr;
  unsigned long tag = std::strtoul(arg.c_str(), &end, 0);
  if (*end != ':' || tag > 0xFFFF) return false;
  unsigned long length = std::strtoul(end + 1, &end, 0);
  if (*end != '\0' || length < 8 || length > 0x7FFF) return false;
  rec->tag = static_cast<uint16_t>(tag);
  rec->length = length;
  return true;
}

bool readFile(const std::string &path, std::string *out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream data;
  data << in.rdbuf();
  *out = data.str();
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  EnvelopeOptions opts;
  std::string input, passphrase, out, sizeArg;
  bool havePassphrase = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    bool hasValue = i + 1 < argc;
    if (arg == "--md5") opts.digest = Digest::Md5;
    else if (arg == "--flag") opts.flagBit = true;
    else if (arg == "--side-file") opts.sideFile = true;
    else if (arg == "--slot" && hasValue) opts.records.push_back(slotRecord(argv[++i]));
    else if (arg == "--unknown" && hasValue) {
      ExtraRecord rec;
      if (!unknownRecord(argv[++i], &rec)) return usage("bad --unknown " + std::string(argv[i]));
      opts.records.push_back(rec);
    } else if (arg == "--magic" && hasValue) {
      std::string v = argv[++i];
      if (v != "1" && v != "2") return usage("--magic takes 1 or 2");
      opts.magic = v == "1" ? kMagicV1 : kMagicV2;
    } else if (arg == "--seed" && hasValue) opts.seed = std::strtoull(argv[++i], nullptr, 0);
    else if (arg == "--input" && hasValue) input = argv[++i];
    else if (arg == "--size" && hasValue) sizeArg = argv[++i];
    else if (arg == "--passphrase" && hasValue) { passphrase = argv[++i]; havePassphrase = true; }
    else if (arg == "-h" || arg == "--help") return usage("");
    else if (!arg.empty() && arg[0] != '-' && out.empty()) out = arg;
    else return usage("unexpected argument " + arg);
  }
  if (out.empty() || !havePassphrase || input.empty() == sizeArg.empty())
    return usage("need OUT, --passphrase and one of --input or --size");

  std::string error;
  bool ok;
  if (!input.empty()) {
    std::string plaintext;
    if (!readFile(input, &plaintext)) return usage("cannot read " + input);
    ok = writeEnvelope(out, plaintext, passphrase, opts, &error);
  } else {
    char *end = nullptr;
    unsigned long long size = std::strtoull(sizeArg.c_str(), &end, 0);
    if (*end != '\0') return usage("bad --size " + sizeArg);
    ok = writePatternEnvelope(out, size, passphrase, opts, &error);
  }
  if (!ok) {
    std::cerr << "nm-envelope-writer: " << error << "\n";
    return 1;
  }
  return 0;
}

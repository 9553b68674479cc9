#define NM_LOG_SOURCE "nmcrypto/src/nmcrypto_dec"

#include "nmcrypto_internal.h"
#include "nmkeycheck.h"

#include "nmplatform/nmstring.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <string.h>

namespace {

const char kCorruptText[] = "Input file is corrupt";
const char kSideSuffix[] = ".nmb-meta";

uint32_t corrupt(nm_crypto_dec_t *dec) {
  nm_crypto_set_message(dec, kCorruptText, 0, nullptr);
  return NM_CRYPTO_CORRUPT;
}

uint32_t ioFailure(nm_crypto_dec_t *dec, const char *text, uint32_t err, uint32_t *slot) {
  nm_crypto_set_message(dec, text, err, slot);
  return NM_CRYPTO_IO;
}

// "%s%s" of path and the side-file suffix; false when it doesn't fit.
bool sideFileName(const char *path, char (&name)[NM_CRYPTO_PATH_SIZE]) {
  size_t length = 0;
  name[0] = '\0';
  return nm_strlcat(name, path, sizeof name, &length) == 0 &&
         nm_strlcat(name, kSideSuffix, sizeof name, &length) == 0;
}

// Opens path for recognising: the status comes with the open, which saves a
// system call.
uint32_t openRecognised(nm_crypto_dec_t *dec, const char *path, uint32_t *sys_error) {
  const uint32_t err = nm_file_open_read_stat(path, &dec->file, &dec->status);
  return err != 0 ? ioFailure(dec, "Cannot open file: ", err, sys_error)
                  : static_cast<uint32_t>(NM_CRYPTO_OK);
}

// Reads the file's last bytes (at most 8,192) into the work buffer. Opening
// takes the status, seeks and reads, each failing with its own message;
// recognising has the status from the open and reads in one positioned read,
// since to the probe every failure is result 3 alike.
uint32_t readTail(nm_crypto_dec_t *dec, nm_file_t *file, bool recognising, size_t *size,
                  uint32_t *sys_error) {
  uint32_t err = recognising ? 0 : nm_file_stat(file, &dec->status);
  if (err != 0) return ioFailure(dec, "Cannot examine file: ", err, sys_error);
  const uint64_t total = dec->status.size;
  if (total < NM_TRAILER_MAIN_LENGTH) return corrupt(dec);
  const uint64_t start = total > NM_TRAILER_TAIL_MAX ? total - NM_TRAILER_TAIL_MAX : 0;
  err = recognising ? 0 : nm_file_seek(file, static_cast<int64_t>(start), 0);
  if (err != 0) return ioFailure(dec, "Cannot seek in file: ", err, sys_error);
  *size = static_cast<size_t>(total - start);
  nm_crypto_buffer_used(dec, *size);
  size_t got = 0;
  err = recognising ? nm_file_read_at(file, start, dec->buffer, *size, &got)
                    : nm_file_read(file, dec->buffer, *size, &got);
  if (err != 0) return ioFailure(dec, "Cannot read file: ", err, sys_error);
  return got < *size ? corrupt(dec) : static_cast<uint32_t>(NM_CRYPTO_OK);
}

// Makes the handle ready to stream the payload with the checked file key.
uint32_t startStream(nm_crypto_dec_t *dec, uint32_t *sys_error) {
  const bool ok = nm_keystream_setup(&dec->stream, dec->file_key) == 0;
  OPENSSL_cleanse(dec->file_key, sizeof dec->file_key);  // the stream holds the key now
  if (!ok) {
    nm_keystream_free(&dec->stream);
    nm_crypto_set_message(dec, "Cannot set up AES-128", 0, nullptr);
    return NM_CRYPTO_INVALID;
  }
  dec->remaining = dec->main.length;
  memcpy(dec->work_iv, dec->main.iv, sizeof dec->work_iv);
  dec->position = dec->fill = dec->consumed = 0;
  dec->carry_at = NM_CRYPTO_NO_CARRY;
  dec->owned = nullptr;
  uint32_t err = nm_file_seek(&dec->file, 0, 0);
  if (err != 0) return ioFailure(dec, "Cannot seek in file: ", err, sys_error);
  return NM_CRYPTO_OK;
}

// What tells later whether the envelope is still the one decrypted and
// whether its layout agrees with L. A file that can't be identified has no
// layout.
void recordLayout(nm_crypto_dec_t *dec, bool ownTrailer) {
  dec->layout.length = dec->main.length;
  dec->layout.trailer_offset = ownTrailer ? dec->trailer_at : NM_CRYPTO_TRAILER_IN_SIDE_FILE;
  dec->opened = nm_file_identify(&dec->file, &dec->layout.envelope) == 0;
}

// The side-file rule: after the envelope's own failure rc, its side file may
// supply the metadata. Its own failure replaces rc only once it opened.
uint32_t trySideFile(nm_crypto_dec_t *dec, uint32_t rc, const char *path, const char *passphrase,
                     uint32_t *sys_error) {
  char name[NM_CRYPTO_PATH_SIZE];
  nm_file_t side;
  nm_file_init(&side);
  if (!sideFileName(path, name) || nm_file_open_read(name, &side) != 0) return rc;
  rc = nm_crypto_examine(dec, &side, passphrase, 1, sys_error);
  nm_file_close(&side);
  return rc;
}

}  // namespace

uint32_t nm_crypto_examine(nm_crypto_dec_t *dec, nm_file_t *file, const char *passphrase,
                           int check_keys, uint32_t *sys_error) {
  size_t size = 0;
  uint32_t rc = readTail(dec, file, !check_keys, &size, sys_error);
  if (rc != NM_CRYPTO_OK) return rc;
  nm_trailer_t trailer;
  if (nm_trailer_walk(dec->buffer, size, &trailer) != 0) return corrupt(dec);
  dec->main = trailer.main;
  dec->trailer_at = dec->status.size - size + trailer.main_offset;
  if (!check_keys) return NM_CRYPTO_OK;
  if (nm_keycheck_find(dec->buffer, size, &trailer, passphrase, dec->file_key, &dec->digest) ==
      0)
    return NM_CRYPTO_OK;
  nm_crypto_set_message(dec, nm_keycheck_fips()
                                 ? "Passphrase doesn't match or file was encrypted using out "
                                   "of date software"
                                 : "Passphrase doesn't match",
                        0, nullptr);
  return NM_CRYPTO_MISMATCH;
}

uint32_t nm_crypto_dec_open(const char *passphrase, const char *path, nm_crypto_dec_t *dec,
                            uint32_t *sys_error) {
  if (!dec || !path || nm_file_is_open(&dec->file)) return NM_CRYPTO_INVALID;
  if (!passphrase) passphrase = "";
  uint32_t err = nm_file_open_read(path, &dec->file);
  if (err != 0) return ioFailure(dec, "Cannot open file: ", err, sys_error);
  uint32_t rc = nm_crypto_examine(dec, &dec->file, passphrase, 1, sys_error);
  const bool ownTrailer = rc == NM_CRYPTO_OK;
  if (!ownTrailer) rc = trySideFile(dec, rc, path, passphrase, sys_error);
  if (rc == NM_CRYPTO_OK) rc = startStream(dec, sys_error);
  if (rc == NM_CRYPTO_OK) {
    dec->message[0] = '\0';  // an envelope that opened through its side file failed first
    recordLayout(dec, ownTrailer);
    return rc;
  }
  OPENSSL_cleanse(dec->file_key, sizeof dec->file_key);
  dec->remaining = 0;
  nm_keystream_free(&dec->stream);  // a seek failure comes after the setup
  nm_file_close(&dec->file);
  return rc;
}

uint32_t nm_crypto_dec_layout(const nm_crypto_dec_t *dec, nm_crypto_layout_t *layout) {
  if (!layout) return NM_CRYPTO_INVALID;
  memset(layout, 0, sizeof *layout);
  if (!dec || !dec->opened) return NM_CRYPTO_INVALID;
  *layout = dec->layout;
  return NM_CRYPTO_OK;
}

namespace {

// Side files of side files are followed, but not without end.
const int kMaxProbeDepth = 8;

// One handle per thread serves all its probes: a probe is a few system
// calls, and a fresh zeroed handle with its 64 KiB buffer cost more than they.
struct ProbeHandle {
  nm_crypto_dec_t *dec = nullptr;
  ~ProbeHandle() { nm_crypto_dec_free(&dec); }
};
thread_local ProbeHandle t_probe;

uint32_t probe(const char *path, uint32_t *sys_error, int depth, bool sideFile) {
  if (!t_probe.dec) t_probe.dec = nm_crypto_dec_new();
  nm_crypto_dec_t *dec = t_probe.dec;
  if (!dec) return NM_CRYPTO_IO;
  // Matched or not, a trailer that walks makes an envelope: no key check.
  uint32_t rc = openRecognised(dec, path, sys_error);
  if (rc == NM_CRYPTO_OK) rc = nm_crypto_examine(dec, &dec->file, "", 0, sys_error);
  nm_file_close(&dec->file);
  nm_crypto_wipe_buffer(dec);  // the tail, as at free
  if (rc != NM_CRYPTO_CORRUPT) return rc;
  char name[NM_CRYPTO_PATH_SIZE];
  bool side = sideFile && depth < kMaxProbeDepth && sideFileName(path, name) &&
              probe(name, sys_error, depth + 1, true) == NM_CRYPTO_OK;
  return side ? NM_CRYPTO_OK : NM_CRYPTO_NOT_ENVELOPE;
}

}  // namespace

uint32_t nm_crypto_dec_probe(const char *path, uint32_t *sys_error) {
  return path ? probe(path, sys_error, 0, true) : static_cast<uint32_t>(NM_CRYPTO_NOT_ENVELOPE);
}

uint32_t nm_crypto_dec_probe_alone(const char *path, uint32_t *sys_error) {
  return path ? probe(path, sys_error, 0, false) : static_cast<uint32_t>(NM_CRYPTO_NOT_ENVELOPE);
}

/* Status codes of the platform library.
 *
 * Every call of nmplatform and nmcrypto reports through an unsigned 32-bit
 * number: 0 is success, numbers below NM_STATUS_BASE are the system's errno
 * values, NM_STATUS_BASE and above are the library's own codes below. */
#ifndef NMPLATFORM_NMSTATUS_H
#define NMPLATFORM_NMSTATUS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NM_STATUS_BASE 0x7000u

/* XX(name, code, text): the one table that generates the codes and texts. */
#define NM_STATUS_MAP(XX)                                                              \
  XX(INVALID_DOC_ROOT, 0x7000, "Invalid doc root path")                                \
  XX(BAD_TOKEN_SEPARATOR, 0x7001, "Invalid command or token separator mismatch")       \
  XX(BASE_NAME_NOT_FOUND, 0x7002, "Base file/directory name not found in path")       \
  XX(PATH_MISMATCH, 0x7003, "File/directory path mismatch")                           \
  XX(ILLEGAL_UTF, 0x7004, "Illegal UTF string")                                        \
  XX(INSUFFICIENT_BUFFER, 0x7005, "Insufficient buffer space")                         \
  XX(END_OF_DIRECTORY, 0x7006, "End or directory reached")                             \
  XX(LIBRARY_OPEN_CLOSE, 0x7007, "Library open/close failed")                          \
  XX(MODULE_LOAD, 0x7008, "Library module loading failed")                             \
  XX(UUID_STRING, 0x7009, "Could not create UUID string")                              \
  XX(CONFIG_XML, 0x700A, "Could not parse xml file for configs")                       \
  XX(LOCALE_INFO, 0x700B, "Could not read locale info")                                \
  XX(MD5SUM, 0x700C, "Could not compute md5sum")                                       \
  XX(SHA_HASH, 0x700D, "Could not compute SHA hash")                                   \
  XX(LOG_FAILED, 0x700E, "Could not log message")                                      \
  XX(INVALID_USER, 0x700F, "Invalid user name")                                        \
  XX(UAC_PARSE, 0x7010, "Parse error inside UAC")                                      \
  XX(NO_XFER, 0x7011, "No transmitting xfer found")                                    \
  XX(UNIMPLEMENTED, 0x7012, "Unimplemented function")                                  \
  XX(INTERNAL, 0x7013, "Internal error")                                               \
  XX(REACHED_END, 0x7014, "Reached end")                                               \
  XX(STORAGE_INACCESSIBLE, 0x7015, "Storage inaccessible")                             \
  XX(BAD_PATHNAME, 0x7016, "Bad pathname")                                             \
  XX(CONNECTION_INSECURE, 0x7019, "Connection insecure")                               \
  XX(FILE_NOT_VALID, 0x701A, "File not valid")                                         \
  XX(NOT_ENABLED, 0x701B, "Not enabled")                                               \
  XX(NOT_PRESENT, 0x701C, "Not present")                                               \
  XX(ALREADY_LOCKED, 0x701D, "Already locked")                                         \
  XX(INVALID_LOCK, 0x701E, "Invalid lock")                                             \
  XX(LOCK_TIME_SKEW, 0x701F, "Lock time skew detected")                                \
  XX(WRONG_CHANNEL, 0x7020, "Incorrect channel accessed")                              \
  XX(USER_ABORTED, 0x7021, "User aborted session")                                     \
  XX(BAD_TOKEN, 0x7022, "Bad token")                                                   \
  XX(ILLEGAL_PATH_CHARS, 0x7023, "Illegal character(s) in path name")                  \
  XX(MISSING_DOCROOT, 0x7024, "Missing docroot restriction")                           \
  XX(DOCROOT_CHECK, 0x7025, "Failed docroot restriction check")                        \
  XX(EXPIRED, 0x7026, "Expired")                                                       \
  XX(UPLOAD_IN_PROGRESS, 0x7027, "File upload already in progress")                    \
  XX(EAR_UNAVAILABLE, 0x7028, "Server-side Encryption At Rest unavailable")            \
  XX(EAR_FAILED, 0x7029, "Server-side Encryption At Rest failed")                      \
  XX(FIPS_CHECKSUM, 0x702A, "Cipher checksum not supported in FIPS mode")              \
  XX(ASYNC_ABORTED, 0x702B, "Async job aborted at initiator request")

typedef enum nm_status {
#define NM_STATUS_ENUM(name, code, text) NM_E_##name = code,
  NM_STATUS_MAP(NM_STATUS_ENUM)
#undef NM_STATUS_ENUM
  NM_STATUS_END
} nm_status;

/* Text of a status or system error number.
 * A code of the table gives its fixed text (static storage; buf untouched).
 * Any other number is taken as a system error number: its text is written to
 * buf (cut to size) and buf is returned; "N/A" when the system has none.
 * With a null or empty buf, a system number yields "N/A". Never null. */
const char *nm_status_text(uint32_t code, char *buf, size_t size);

#ifdef __cplusplus
}
#endif

#endif

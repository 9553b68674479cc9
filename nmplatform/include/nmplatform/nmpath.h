/* Windows path conversion: pure string functions, compiled and tested on
 * every platform. On Windows the file layer passes every path through
 * nm_path_to_windows before the wide-character calls; POSIX hands paths to
 * the kernel unchanged. */
#ifndef NMPLATFORM_NMPATH_H
#define NMPLATFORM_NMPATH_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NM_PATH_MAX 8192          /* bytes of a normalised UTF-8 path */
#define NM_PATH_PREFIXED_MAX 8202 /* characters of a prefixed path */
#define NM_PATH_WIDE_MAX 16384    /* UTF-16 units of a converted path */

/* Non-zero for "scheme:/..." with a scheme of at least two characters that
 * starts with a letter and holds only letters, digits, '+', '-' and '.', and
 * whose first colon is directly followed by two slashes. */
int nm_path_is_url(const char *path);

/* Non-zero when path (leading blanks skipped) starts with a slash or a
 * backslash, or with a drive letter, a colon and a separator. */
int nm_path_is_absolute(const char *path);

/* Normalises into out (size bytes): null or empty stays empty; URLs and
 * "vext://" paths are copied as they stand; otherwise backslashes become
 * slashes, runs of slashes collapse, "." segments go, ".." removes the
 * segment before it (at the root of an absolute path it is dropped), a
 * trailing slash goes and an empty result becomes ".".
 * Returns 0, 22 for a line feed in path or a null out, 28677 when out is
 * too small. */
uint32_t nm_path_normalize(const char *path, char *out, size_t size);

/* Prefixes a normalised path for the long-path form: relative paths and
 * paths under 11 characters are copied as they stand; "//server/share..."
 * becomes "\\?\UNC\server\share...", any other absolute path "\\?\path".
 * In the prefixed form slashes become backslashes, and a run of dots before
 * a separator or at the end is dropped. 28677 when the result would exceed
 * NM_PATH_PREFIXED_MAX characters or out is too small. */
uint32_t nm_path_prefix(const char *normalized, char *out, size_t size);

/* UTF-8 to UTF-16 (NUL-terminated); *units receives the length without the
 * terminator. 28676 for malformed UTF-8, 28677 when out is too small. */
uint32_t nm_path_utf8_to_utf16(const char *in, uint16_t *out, size_t size, size_t *units);

/* The whole conversion of a UTF-8 path to the wide form the Windows calls
 * take: normalise, prefix, convert. */
uint32_t nm_path_to_windows(const char *path, uint16_t *out, size_t size);

#ifdef __cplusplus
}
#endif

#endif

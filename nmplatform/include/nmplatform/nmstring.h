/* Bounded string append. */
#ifndef NMPLATFORM_NMSTRING_H
#define NMPLATFORM_NMSTRING_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Appends src to dst, a buffer of size bytes whose text is *len bytes long
 * (len may be null: the append then starts at 0, i.e. a copy).
 * Copies at most size - *len - 1 bytes, advances *len and NUL-terminates.
 * Returns 0; NM_E_INSUFFICIENT_BUFFER (28677) when src had to be cut, in which
 * case a UTF-8 sequence left incomplete at the cut is removed as well;
 * 22 for a null dst or src or *len >= size (dst is then emptied if it exists). */
uint32_t nm_strlcat(char *dst, const char *src, size_t size, size_t *len);

#ifdef __cplusplus
}
#endif

#endif

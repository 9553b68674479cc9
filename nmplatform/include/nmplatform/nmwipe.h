/* Wiping secrets: buffers, and the stack that called functions left behind. */
#ifndef NMPLATFORM_NMWIPE_H
#define NMPLATFORM_NMWIPE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of stack below its caller that nm_wipe_stack clears: more than the
 * deepest call chain of a decryption (about 14 KiB, through the side-file
 * path), and no more, since each page touched beyond a thread's usual depth
 * costs a page fault at every thread start. */
#define NM_WIPE_STACK_BYTES 16384u

/* Zeroes size bytes at buffer in a way the compiler cannot leave out. A null
 * buffer is ignored. */
void nm_wipe(void *buffer, size_t size);

/* Zeroes the NM_WIPE_STACK_BYTES of stack just below the caller's frame,
 * where the functions it called kept their locals and saved registers (key
 * material and plaintext among them). For the end of a thread's work. */
void nm_wipe_stack(void);

#ifdef __cplusplus
}
#endif

#endif

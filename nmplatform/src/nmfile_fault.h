/* The fault seam of nm_file_set_fault_fn, shared by the units that make the
 * calls it covers. */
#ifndef NMPLATFORM_NMFILE_FAULT_H
#define NMPLATFORM_NMFILE_FAULT_H

#include <nmplatform/nmfile.h>

/* 0 to go ahead (a write's *size possibly lowered), or the error to fail with. */
uint32_t nm_file_fault(int op, intptr_t handle, const char *path, size_t *size);

#endif

// How a plaintext reaches its name: written under a hidden temporary name in
// the same folder (".name.nmpart"), then given the first free name of its
// sequence in one step that never replaces anything. A crash leaves at most
// a hidden temporary file, never a partial file under an output name.
#pragma once

#include <QString>

#include <nmplatform/nmfile.h>

namespace output_naming {
class NameReservations;
}

namespace output_placement {

// The temporary name beside output for attempt n: ".name.nmpart", then
// ".name.2.nmpart", ".name.3.nmpart"... A name too long for the file system
// is shortened; the name stays hidden and recognisable by its ending.
QString temporaryName(const QString &output, int attempt);

// Creates the first free temporary name of output exclusively, with the
// permission bits mode. 0 with *file open for writing and *temp set, or the
// error number (a name taken by anything is passed over).
uint32_t createTemporary(const QString &output, uint32_t mode, nm_file_t *file, QString *temp);

// Gives the file at temp the first name of natural's sequence, from *step
// on, that no other task of the batch holds and nothing on disk has. Returns
// 0 with *step and *placed set, or the error number of the failed move
// (temp then keeps its name). names may be null.
uint32_t place(const QString &temp, const QString &natural, int *step,
               output_naming::NameReservations *names, const void *owner, QString *placed);

// Syncs the folder that holds path, so that its renames survive a power cut.
uint32_t syncFolderOf(const QString &path);

// UTF-8 for the platform calls.
QByteArray native(const QString &path);

} // namespace output_placement

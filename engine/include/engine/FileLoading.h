// Turning what the user names into envelope paths: the envelope test, the
// folder walk, list files, the summary of a load, and the two windowless test
// modes of the command line. Plain functions; none touches the task list.
//
// Paths are joined as folder + "/" + name and never made canonical. Folder
// listings leave out symbolic links, hidden entries and special files
// (devices, pipes, sockets), so neither a walk nor a scan follows a link loop
// or opens something that could block.
#pragma once

#include <functional>

#include <QFileInfo>
#include <QString>
#include <QStringList>

namespace FileLoading {

// Asked between entries of a walk; true stops the walk.
using CancelTest = std::function<bool()>;

// An existing regular file (links followed) whose suffix is exactly
// "nimbra-env", or whose content the envelope probe accepts.
bool isEnvelope(const QString &path);
// The same for a path already examined; info must describe path.
bool isEnvelope(const QString &path, const QFileInfo &info);

// The regular files of folder matching nameFilter, then (when recursive)
// those of each sub-folder in turn, depth first, in the order the file system
// lists them. onlyEncrypted keeps envelopes only. A cancel seen by this call
// discards everything it found; a folder that cannot be listed adds nothing.
QStringList walkFolder(const QString &folder, const QString &nameFilter, bool recursive,
                       bool onlyEncrypted, const CancelTest &cancelled);

// Bounds of a list file, so that an endless pipe ends in an error.
constexpr qint64 kMaxListFileBytes = qint64(64) << 20;
constexpr int kMaxListLineBytes = 64 << 10;

// Reads a list file: one entry per line, UTF-8, LF or CR LF, each line
// trimmed, empty lines kept. Regular files and pipes (a FIFO, /dev/stdin fed
// by a pipe) are read; devices, sockets and folders are refused. Past
// kMaxListFileBytes in all or kMaxListLineBytes in one line the reading
// stops. On failure *entries is empty and *errorText says why (localized).
bool readListFile(const QString &path, QStringList *entries, QString *errorText);

// "%s files loaded." for loaded tasks, with the duplicates that the collected
// paths held beyond them appended; localized.
QString loadSummary(int loaded, int collected);

// Test mode "-test": true as soon as one envelope is found among paths,
// looking into folders depth first. Missing and special paths are skipped.
bool scanPathsForEnvelopes(const QStringList &paths);

// Test mode "-test-list": the scan above over the entries of a list file;
// false when the list file cannot be read.
bool scanListFileForEnvelopes(const QString &listFile);

} // namespace FileLoading

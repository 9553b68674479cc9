// Turning what the user names into envelope paths: the envelope test, the
// folder walk, list files, the summary of a load, and the two windowless test
// modes of the command line. Plain functions; none touches the task list.
//
// A named path is made clean before it is used (cleanPath), and a walk joins
// folder + "/" + name, so that one file always gives one string, whatever way
// it was named; links keep their own names. Folder listings leave out
// symbolic links, hidden entries and special files (devices, pipes, sockets),
// so neither a walk nor a scan follows a link loop or opens something that
// could block.
//
// Paths are text in UTF-8 throughout the program. Folders are walked by the
// names' bytes: the test modes see every name, while a load counts the files
// whose path is not valid UTF-8 (the task list cannot hold them) and says so
// in its summary.
#pragma once

#include <functional>

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <QStringList>

namespace FileLoading {

// Asked between entries of a walk; true stops the walk.
using CancelTest = std::function<bool()>;

// path absolute, without ".", "..", doubled or trailing separators. A ".."
// after a link goes up from the link's target, as the system would; empty
// when path is empty or a ".." follows something that is not a folder.
QString cleanPath(const QString &path);

// An existing regular file (links followed) whose suffix is exactly
// "nimbra-env", taken without opening it, or whose content the envelope
// probe accepts.
bool isEnvelope(const QString &path);

// The regular files of folder matching nameFilter, then (when recursive)
// those of each sub-folder in turn, depth first, in the order the file system
// lists them. onlyEncrypted keeps envelopes only. A cancel seen by this call
// discards everything it found; a folder that cannot be listed adds nothing.
// Files that would be kept but whose path is not valid UTF-8 are added to
// *undecodable instead.
QStringList walkFolder(const QString &folder, const QString &nameFilter, bool recursive,
                       bool onlyEncrypted, const CancelTest &cancelled, int *undecodable = nullptr);

// Bounds of a list file, so that an endless pipe ends in an error.
constexpr qint64 kMaxListFileBytes = qint64(64) << 20;
constexpr int kMaxListLineBytes = 64 << 10;

// Told each line of a list file as it is read; false stops the reading.
using LineTaker = std::function<bool(const QByteArray &line)>;

// Reads a list file as bytes: one entry per line, lines ended by LF, CR LF
// or a lone CR, empty lines kept, each told to take in file order. Regular
// files and pipes (a FIFO, /dev/stdin fed by a pipe) are read; devices,
// sockets and folders are refused. Past kMaxListFileBytes in all or
// kMaxListLineBytes in one line the reading fails. False with *errorText set
// (localized) on failure; true when the list was read to its end or take
// stopped it.
bool readListLines(const QString &path, const LineTaker &take, QString *errorText);

// The same as text (a load trims each entry); lines that are not valid
// UTF-8 are left out and counted in *undecodable.
bool readListFile(const QString &path, QStringList *entries, QString *errorText,
                  int *undecodable = nullptr);

// "%s files loaded." for loaded tasks, with the duplicates that the collected
// paths held beyond them and the paths left out as not UTF-8 appended;
// localized.
QString loadSummary(int loaded, int collected, int undecodable = 0);

// Test mode "-test": true as soon as one envelope is found among paths,
// looking into folders depth first. Missing and special paths are skipped.
// Paths are bytes, as the command line gives them: they need not be UTF-8.
bool scanPathsForEnvelopes(const QByteArrayList &paths);

// Test mode "-test-list": the scan above over the trimmed lines of a list
// file, each as its bytes, answering at the first envelope; false with
// *errorText set when the list cannot be read up to there.
bool scanListFileForEnvelopes(const QString &listFile, QString *errorText);

} // namespace FileLoading

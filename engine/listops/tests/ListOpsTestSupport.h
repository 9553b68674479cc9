// Real files for the list-operation tests: envelopes from the writer tool,
// plain files, pipes, and a folder deeper than any path may reach.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include <envelope_writer/EnvelopeWriter.h>

namespace listops_test {

inline const char *kPassphrase = "open sesame";

inline QString envelope(const QString &path, const QByteArray &plain = "plain text",
                        uint64_t patternSize = 0)
{
    const std::string name = QFile::encodeName(path).toStdString();
    std::string why;
    const bool ok = patternSize
        ? envelope_writer::writePatternEnvelope(name, patternSize, kPassphrase, {}, &why)
        : envelope_writer::writeEnvelope(name, plain.toStdString(), kPassphrase, {}, &why);
    if (!ok)
        qFatal("cannot write envelope %s: %s", qPrintable(path), why.c_str());
    return path;
}

inline QString plainFile(const QString &path, const QByteArray &bytes = "not an envelope")
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

inline QString fifo(const QString &path)
{
    if (::mkfifo(QFile::encodeName(path).constData(), 0600) != 0)
        qFatal("cannot make pipe %s", qPrintable(path));
    return path;
}

// A chain of folders under parent whose innermost one, holding an envelope,
// lies beyond the system's path length limit: no call by path can list it,
// whoever runs the test. Returns the chain's first folder.
inline QString chainBeyondPathLimit(const QString &parent)
{
    const std::string level(200, 'd');
    int fd = ::open(QFile::encodeName(parent).constData(), O_RDONLY | O_DIRECTORY);
    for (int depth = 0; fd >= 0 && depth < 24; ++depth) {
        ::mkdirat(fd, level.c_str(), 0700);
        const int next = ::openat(fd, level.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(fd);
        fd = next;
    }
    const int file = fd < 0 ? -1 : ::openat(fd, "deep.nimbra-env", O_CREAT | O_WRONLY, 0600);
    if (file < 0)
        qFatal("cannot build the deep folder chain");
    ::close(file);
    ::close(fd);
    return parent + QLatin1Char('/') + QString::fromStdString(level);
}

// Removes name under the folder dirFd by descriptors, so depth is no limit.
inline void removeTreeAt(int dirFd, const char *name)
{
    const int fd = ::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (fd < 0) {
        ::unlinkat(dirFd, name, 0);
        return;
    }
    DIR *dir = ::fdopendir(fd);
    while (dirent *entry = dir ? ::readdir(dir) : nullptr) {
        if (qstrcmp(entry->d_name, ".") != 0 && qstrcmp(entry->d_name, "..") != 0)
            removeTreeAt(fd, entry->d_name);
    }
    dir ? ::closedir(dir) : ::close(fd);
    ::unlinkat(dirFd, name, AT_REMOVEDIR);
}

inline void removeTree(const QString &path)
{
    removeTreeAt(AT_FDCWD, QFile::encodeName(path).constData());
}

} // namespace listops_test

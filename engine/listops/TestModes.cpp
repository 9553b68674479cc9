// The windowless test modes: synchronous scans that answer whether given
// paths hold an envelope. They touch neither the task list nor the task
// manager.
#include <engine/FileLoading.h>

#include <QDir>

namespace FileLoading {

namespace {

bool scanFolder(const QString &folder);

// A regular file counts when it is an envelope; a folder is searched; links
// named directly are followed, anything else is skipped.
bool scanEntry(const QString &path, const QFileInfo &info)
{
    if (info.isFile())
        return isEnvelope(path, info);
    if (info.isDir())
        return scanFolder(path);
    return false;
}

bool scanFolder(const QString &folder)
{
    QDir dir(folder);
    dir.setFilter(QDir::AllEntries | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    dir.setSorting(QDir::Unsorted);
    const QString prefix = folder + QLatin1Char('/');
    const QFileInfoList entries = dir.entryInfoList();
    for (const QFileInfo &entry : entries) {
        if (scanEntry(prefix + entry.fileName(), entry))
            return true;
    }
    return false;
}

} // namespace

bool scanPathsForEnvelopes(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (!path.isEmpty() && scanEntry(path, QFileInfo(path)))
            return true;
    }
    return false;
}

bool scanListFileForEnvelopes(const QString &listFile)
{
    QStringList entries;
    QString ignored;
    return readListFile(listFile, &entries, &ignored) && scanPathsForEnvelopes(entries);
}

} // namespace FileLoading

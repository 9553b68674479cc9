#include <engine/FileLoading.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>

#include <QDir>
#include <QSet>
#include <QVector>

#include <nmcrypto/nmcrypto_dec.h>

#include <localization/LocaleText.h>

namespace FileLoading {

namespace {

// The file suffix that marks an envelope without opening it.
const char kEnvelopeSuffix[] = "nimbra-env";
// What the envelope probe appends to a path to find its metadata side file.
const char kSideFileSuffix[] = ".nmb-meta";

// Told for each regular file a walk finds: its path, its name and whether
// the folder may hold a side file for it. False stops the walk.
using FileVisit = std::function<bool(const QByteArray &path, const QByteArray &name, bool sideFile)>;

struct FolderEntry {
    QByteArray name;
    bool isFolder;
};

struct FolderListing {
    QVector<FolderEntry> entries;
    QSet<QByteArray> sideFiles; // every visible name that ends in the side-file suffix
    bool complete = true;       // the listing read to its end

    bool mayHaveSideFile(const QByteArray &name) const
    {
        return !complete || (!sideFiles.isEmpty() && sideFiles.contains(name + kSideFileSuffix));
    }
};

// The regular files of folder that match nameFilter and, with folders, all
// its folders, without links, hidden entries, special files, "." and "..", in
// the order the file system returns them. One pass over the folder: the type
// comes with each name where the file system gives it, so listing costs no
// system call per entry. The side-file names, of whatever type, are noted
// so that the probe need not look for side files that aren't there.
FolderListing listFolder(const QByteArray &folder, const QString &nameFilter, bool folders)
{
    FolderListing listing;
    DIR *dir = ::opendir(folder.constData());
    if (!dir)
        return listing;
    const bool everyName = nameFilter == QLatin1String("*");
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(dir);
        if (!entry) {
            listing.complete = errno == 0;
            break;
        }
        if (entry->d_name[0] == '.') // hidden, "." and ".."
            continue;
        const QByteArray name(entry->d_name);
        if (name.endsWith(kSideFileSuffix))
            listing.sideFiles.insert(name);
        unsigned char type = entry->d_type;
        struct stat st;
        if (type == DT_UNKNOWN
            && ::fstatat(::dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0)
            type = S_ISREG(st.st_mode) ? DT_REG : S_ISDIR(st.st_mode) ? DT_DIR : DT_UNKNOWN;
        if (type != DT_REG && !(folders && type == DT_DIR))
            continue;
        if (type == DT_DIR || everyName || QDir::match(nameFilter, QString::fromUtf8(name)))
            listing.entries.push_back({name, type == DT_DIR});
    }
    ::closedir(dir);
    return listing;
}

// The probe, for a path known to be a regular file; sideFile false when a
// listing has just shown that it has none.
bool isEnvelopeFile(const QByteArray &path, bool sideFile = true)
{
    const int dot = path.lastIndexOf('.');
    if (dot > path.lastIndexOf('/') && path.mid(dot + 1) == kEnvelopeSuffix)
        return true;
    uint32_t systemError = 0;
    return (sideFile ? nm_crypto_dec_probe(path.constData(), &systemError)
                     : nm_crypto_dec_probe_alone(path.constData(), &systemError))
           == NM_CRYPTO_OK;
}

// Tells visit of each regular file of folder, then walks each sub-folder in
// turn. False when cancelled or stopped by visit.
bool visitFolder(const QByteArray &folder, const QString &nameFilter, bool recursive,
                 const CancelTest &cancelled, const FileVisit &visit)
{
    const FolderListing listing = listFolder(folder, nameFilter, recursive);
    const QByteArray prefix = folder.endsWith('/') ? folder : folder + '/';
    QVector<QByteArray> subFolders;
    for (const FolderEntry &entry : listing.entries) {
        if (entry.isFolder)
            subFolders << entry.name;
        else if (cancelled() || !visit(prefix + entry.name, entry.name, listing.mayHaveSideFile(entry.name)))
            return false;
    }
    for (const QByteArray &name : qAsConst(subFolders)) {
        if (cancelled() || !visitFolder(prefix + name, nameFilter, true, cancelled, visit))
            return false;
    }
    return true;
}

// The text of bytes, when they are valid UTF-8 and so convert back to
// themselves, as every path must on its way to the system.
bool decodeExactly(const QByteArray &bytes, QString *text)
{
    *text = QString::fromUtf8(bytes);
    return std::all_of(bytes.cbegin(), bytes.cend(), [](char c) { return uchar(c) < 0x80; })
           || text->toUtf8() == bytes;
}

// The test modes' question for one path, links followed where it is named.
bool holdsEnvelope(const QByteArray &path)
{
    struct stat st;
    if (path.isEmpty() || ::stat(path.constData(), &st) != 0)
        return false;
    if (S_ISREG(st.st_mode))
        return isEnvelopeFile(path);
    bool found = false;
    if (S_ISDIR(st.st_mode))
        visitFolder(path, QStringLiteral("*"), true, [] { return false; },
                    [&found](const QByteArray &file, const QByteArray &, bool sideFile) {
                        found = isEnvelopeFile(file, sideFile);
                        return !found;
                    });
    return found;
}

} // namespace

QString cleanPath(const QString &path)
{
    if (path.isEmpty())
        return QString();
    // Not QDir::isAbsolutePath(), which takes a name starting with ':' for a
    // resource path.
    const QString absolute = path.startsWith(QLatin1Char('/')) ? path : QDir::currentPath() + QLatin1Char('/') + path;
    QStringList parts;
    for (const QString &part : absolute.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (part != QLatin1String("..")) {
            if (part != QLatin1String("."))
                parts << part;
            continue;
        }
        if (parts.isEmpty())
            continue;
        const QByteArray upTo = '/' + parts.join(QLatin1Char('/')).toUtf8();
        struct stat st;
        if (::lstat(upTo.constData(), &st) != 0 || !(S_ISDIR(st.st_mode) || S_ISLNK(st.st_mode)))
            return QString();
        if (S_ISLNK(st.st_mode)) {
            char *target = ::realpath(upTo.constData(), nullptr);
            if (!target)
                return QString();
            parts = QString::fromUtf8(target).split(QLatin1Char('/'), Qt::SkipEmptyParts);
            ::free(target);
        }
        if (!parts.isEmpty())
            parts.removeLast();
    }
    return QLatin1Char('/') + parts.join(QLatin1Char('/'));
}

bool isEnvelope(const QString &path)
{
    const QByteArray bytes = path.toUtf8();
    struct stat st;
    return ::stat(bytes.constData(), &st) == 0 && S_ISREG(st.st_mode) && isEnvelopeFile(bytes);
}

QStringList walkFolder(const QString &folder, const QString &nameFilter, bool recursive,
                       bool onlyEncrypted, const CancelTest &cancelled, int *undecodable)
{
    QStringList found;
    int notText = 0;
    const FileVisit keep = [&](const QByteArray &path, const QByteArray &, bool sideFile) {
        QString text;
        if (onlyEncrypted && !isEnvelopeFile(path, sideFile))
            return true;
        if (decodeExactly(path, &text))
            found << text;
        else
            ++notText;
        return true;
    };
    if (!visitFolder(folder.toUtf8(), nameFilter, recursive, cancelled, keep))
        return QStringList();
    if (undecodable)
        *undecodable += notText;
    return found;
}

bool readListFile(const QString &path, QStringList *entries, QString *errorText, int *undecodable)
{
    entries->clear();
    int notText = 0;
    const LineTaker take = [&](const QByteArray &line) {
        QString text;
        if (decodeExactly(line, &text))
            *entries << text;
        else
            ++notText;
        return true;
    };
    if (!readListLines(path, take, errorText)) {
        entries->clear();
        return false;
    }
    if (undecodable)
        *undecodable += notText;
    return true;
}

QString loadSummary(int loaded, int collected, int undecodable)
{
    const QByteArray count = QByteArray::number(loaded);
    QString summary = loaded == 1 ? NM_TR("%s file loaded.", count.constData())
                                  : NM_TR("%s files loaded.", count.constData());
    const int duplicates = collected - loaded;
    const QByteArray skipped = QByteArray::number(duplicates), left = QByteArray::number(undecodable);
    if (duplicates != 0)
        summary += QLatin1Char(' ') + (duplicates == 1 ? NM_TR("%s duplicate skipped.", skipped.constData())
                                                       : NM_TR("%s duplicates skipped.", skipped.constData()));
    if (undecodable != 0)
        summary += QLatin1Char(' ')
                   + (undecodable == 1 ? NM_TR("%s path that is not valid UTF-8 was left out.", left.constData())
                                       : NM_TR("%s paths that are not valid UTF-8 were left out.", left.constData()));
    return summary;
}

bool scanPathsForEnvelopes(const QByteArrayList &paths)
{
    return std::any_of(paths.cbegin(), paths.cend(), holdsEnvelope);
}

bool scanListFileForEnvelopes(const QString &listFile, QString *errorText)
{
    bool found = false;
    const LineTaker test = [&found](const QByteArray &line) {
        QString text;
        found = holdsEnvelope(decodeExactly(line, &text) ? text.trimmed().toUtf8() : line.trimmed());
        return !found;
    };
    return readListLines(listFile, test, errorText) && found;
}

} // namespace FileLoading

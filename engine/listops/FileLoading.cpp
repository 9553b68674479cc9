#include <engine/FileLoading.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
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

struct FolderEntry {
    QString name;
    bool isFolder;
};

struct FolderListing {
    QVector<FolderEntry> entries;
    QSet<QString> sideFiles; // every visible name that ends in the side-file suffix
    bool complete = true;    // the listing read to its end

    bool mayHaveSideFile(const QString &name) const
    {
        return !complete
               || (!sideFiles.isEmpty()
                   && sideFiles.contains(name + QLatin1String(kSideFileSuffix)));
    }
};

bool endsWith(const char *name, const char *suffix)
{
    const size_t length = strlen(name), suffixLength = strlen(suffix);
    return length >= suffixLength
           && memcmp(name + length - suffixLength, suffix, suffixLength) == 0;
}

// The regular files of folder that match nameFilter and, with folders, all
// its folders, without links, hidden entries, special files, "." and "..", in
// the order the file system returns them. One pass over the folder: the type
// comes with each name where the file system gives it, so listing costs no
// system call per entry. The side-file names, of whatever type, are noted
// so that the probe need not look for side files that aren't there.
FolderListing listFolder(const QString &folder, const QString &nameFilter, bool folders)
{
    FolderListing listing;
    DIR *dir = ::opendir(QFile::encodeName(folder).constData());
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
        if (endsWith(entry->d_name, kSideFileSuffix))
            listing.sideFiles.insert(QFile::decodeName(entry->d_name));
        unsigned char type = entry->d_type;
        struct stat st;
        if (type == DT_UNKNOWN
            && ::fstatat(::dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0)
            type = S_ISREG(st.st_mode) ? DT_REG : S_ISDIR(st.st_mode) ? DT_DIR : DT_UNKNOWN;
        if (type != DT_REG && !(folders && type == DT_DIR))
            continue;
        const QString name = QFile::decodeName(entry->d_name);
        if (type == DT_DIR || everyName || QDir::match(nameFilter, name))
            listing.entries.push_back({name, type == DT_DIR});
    }
    ::closedir(dir);
    return listing;
}

bool hasEnvelopeSuffix(const QString &fileName)
{
    const int dot = fileName.lastIndexOf(QLatin1Char('.'));
    return dot >= 0 && fileName.midRef(dot + 1) == QLatin1String(kEnvelopeSuffix);
}

// The content probe for a path known to be a regular file; sideFile false
// when a listing has just shown that it has none.
bool isEnvelopeFile(const QString &path, const QString &fileName, bool sideFile = true)
{
    if (hasEnvelopeSuffix(fileName))
        return true;
    uint32_t systemError = 0;
    const QByteArray encoded = path.toUtf8();
    return (sideFile ? nm_crypto_dec_probe(encoded.constData(), &systemError)
                     : nm_crypto_dec_probe_alone(encoded.constData(), &systemError))
           == NM_CRYPTO_OK;
}

} // namespace

bool isEnvelope(const QString &path)
{
    return isEnvelope(path, QFileInfo(path));
}

bool isEnvelope(const QString &path, const QFileInfo &info)
{
    return info.isFile() && isEnvelopeFile(path, info.fileName());
}

QStringList walkFolder(const QString &folder, const QString &nameFilter, bool recursive,
                       bool onlyEncrypted, const CancelTest &cancelled)
{
    const FolderListing listing = listFolder(folder, nameFilter, recursive);
    const QString prefix = folder + QLatin1Char('/');
    QStringList found;
    QStringList subFolders;
    for (const FolderEntry &entry : listing.entries) {
        if (entry.isFolder) {
            subFolders << entry.name;
            continue;
        }
        if (cancelled())
            return QStringList();
        const QString path = prefix + entry.name;
        if (!onlyEncrypted || isEnvelopeFile(path, entry.name, listing.mayHaveSideFile(entry.name)))
            found << path;
    }
    for (const QString &name : qAsConst(subFolders)) {
        if (cancelled())
            return QStringList();
        found += walkFolder(prefix + name, nameFilter, true, onlyEncrypted, cancelled);
    }
    return found;
}

QString loadSummary(int loaded, int collected)
{
    const QByteArray count = QByteArray::number(loaded);
    QString summary = loaded == 1 ? NM_TR("%s file loaded.", count.constData())
                                  : NM_TR("%s files loaded.", count.constData());
    const int duplicates = collected - loaded;
    if (duplicates == 0)
        return summary;
    const QByteArray skipped = QByteArray::number(duplicates);
    summary += QLatin1Char(' ');
    summary += duplicates == 1 ? NM_TR("%s duplicate skipped.", skipped.constData())
                               : NM_TR("%s duplicates skipped.", skipped.constData());
    return summary;
}

} // namespace FileLoading

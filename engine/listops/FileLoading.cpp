#include <engine/FileLoading.h>

#include <QDir>

#include <nmcrypto/nmcrypto_dec.h>

#include <localization/LocaleText.h>

namespace FileLoading {

namespace {

// The file suffix that marks an envelope without opening it.
const char kEnvelopeSuffix[] = "nimbra-env";

// Entries of a folder without links, hidden entries, special files, "." and
// "..", in the order the file system returns them. Folders are listed
// whatever nameFilter says.
QFileInfoList listFolder(const QString &folder, const QString &nameFilter, QDir::Filters kinds)
{
    QDir dir(folder);
    dir.setNameFilters(QStringList(nameFilter));
    dir.setFilter(kinds | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    dir.setSorting(QDir::Unsorted);
    return dir.entryInfoList();
}

} // namespace

bool isEnvelope(const QString &path)
{
    return isEnvelope(path, QFileInfo(path));
}

bool isEnvelope(const QString &path, const QFileInfo &info)
{
    if (!info.isFile())
        return false;
    if (info.suffix() == QLatin1String(kEnvelopeSuffix))
        return true;
    uint32_t systemError = 0;
    return nm_crypto_dec_probe(path.toUtf8().constData(), &systemError) == NM_CRYPTO_OK;
}

QStringList walkFolder(const QString &folder, const QString &nameFilter, bool recursive,
                       bool onlyEncrypted, const CancelTest &cancelled)
{
    const QDir::Filters kinds = recursive ? QDir::Files | QDir::AllDirs : QDir::Files;
    const QFileInfoList entries = listFolder(folder, nameFilter, kinds);
    const QString prefix = folder + QLatin1Char('/');
    QStringList found;
    QStringList subFolders;
    for (const QFileInfo &entry : entries) {
        if (entry.isDir()) {
            subFolders << entry.fileName();
            continue;
        }
        if (cancelled())
            return QStringList();
        const QString path = prefix + entry.fileName();
        if (entry.isFile() && (!onlyEncrypted || isEnvelope(path, entry)))
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

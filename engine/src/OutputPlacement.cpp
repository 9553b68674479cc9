#include "OutputPlacement.h"

#include <cerrno>

#include <QFile>
#include <QFileInfo>

#include <nmplatform/nmplace.h>

#include "OutputNaming.h"

namespace output_placement {

namespace {

const QLatin1String kTemporaryEnding(".nmpart");
// The longest file name (in bytes) that common file systems take.
constexpr int kMaxNameBytes = 255;
// The names tried at placement before giving up; only a folder filled on
// purpose can hold that many.
constexpr int kMaxSteps = 10000;
// Temporary names tried before the output counts as impossible to create.
constexpr int kMaxAttempts = 100;

} // namespace

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

QString temporaryName(const QString &output, int attempt)
{
    const QFileInfo info(output);
    const QString number = attempt > 0 ? QStringLiteral(".%1").arg(attempt + 1) : QString();
    const QString ending = number + kTemporaryEnding;
    QString name = info.fileName();
    while (!name.isEmpty() && native(QLatin1Char('.') + name + ending).size() > kMaxNameBytes)
        name.chop(name.size() > 1 && name.at(name.size() - 1).isLowSurrogate() ? 2 : 1);
    return info.absolutePath() + QLatin1Char('/') + QLatin1Char('.') + name + ending;
}

uint32_t createTemporary(const QString &output, uint32_t mode, nm_file_t *file, QString *temp)
{
    uint32_t rc = EEXIST;
    for (int attempt = 0; attempt < kMaxAttempts && rc == EEXIST; ++attempt) {
        *temp = temporaryName(output, attempt);
        rc = nm_file_create_new(native(*temp).constData(), mode, file);
    }
    return rc;
}

uint32_t place(const QString &temp, const QString &natural, int *step,
               output_naming::NameReservations *names, const void *owner, QString *placed)
{
    const QByteArray from = native(temp);
    for (int n = *step; n < *step + kMaxSteps; ++n) {
        const QString candidate = output_naming::nameAt(natural, n);
        if (names && !names->claim(candidate, owner))
            continue;
        const uint32_t rc = nm_file_place(from.constData(), native(candidate).constData());
        if (rc == EEXIST)
            continue;
        if (rc == 0) {
            *step = n;
            *placed = candidate;
        }
        return rc;
    }
    return EEXIST;
}

uint32_t syncFolderOf(const QString &path)
{
    return nm_dir_sync(native(QFileInfo(path).absolutePath()).constData());
}

} // namespace output_placement

#include "OutputNaming.h"

#include <QFileInfo>

namespace output_naming {

const char *const kEnvelopeExtension = "nimbra-env";

namespace {

const QLatin1String kMark("(decrypted)");

// "." + ext, or nothing for a name without extension.
QString dotted(const QString &ext)
{
    return ext.isEmpty() ? QString() : QLatin1Char('.') + ext;
}

bool isTaken(const QString &path)
{
    // A dangling link counts: the output would be written through it. Asking
    // for the link first costs one lstat, which also answers exists() unless
    // the name is a link.
    const QFileInfo info(path);
    return info.isSymLink() || info.exists();
}

QString numberedMark(int number)
{
    return QStringLiteral("(decrypted %1)").arg(number);
}

} // namespace

bool NameReservations::claim(const QString &path, const void *owner)
{
    QMutexLocker locker(&m_mutex);
    const int next = static_cast<int>(m_reservations.size());
    const int position = m_index.insert(path, next);
    if (position != next)
        return m_reservations[size_t(position)].owner == owner;
    m_reservations.push_back({path, owner});
    return true;
}

void NameReservations::clear()
{
    QMutexLocker locker(&m_mutex);
    std::vector<Reservation>().swap(m_reservations);
    m_index.clear();
}

QString nameAt(const QString &natural, int step)
{
    if (step <= 0)
        return natural;
    const QFileInfo info(natural);
    QString base = info.completeBaseName();
    if (base.contains(kMark))
        base.replace(kMark, numberedMark(step + 1));
    else
        base += step == 1 ? QString(kMark) : numberedMark(step);
    return info.absolutePath() + QLatin1Char('/') + base + dotted(info.suffix());
}

OutputName outputFor(const QString &sourcePath, NameReservations *names, const void *owner)
{
    const QFileInfo source(sourcePath);
    const QString dir = source.absolutePath();
    const QString base = source.completeBaseName();
    const QString ext = source.suffix();

    OutputName name;
    if (ext.toLower() == QLatin1String(kEnvelopeExtension)) {
        name.natural = dir + QLatin1Char('/') + base;
    } else {
        name.plainInput = true;
        name.natural = dir + QLatin1Char('/') + base + dotted(ext);
    }
    if (isTaken(name.natural))
        name.step = 1;
    while (names && !names->claim(nameAt(name.natural, name.step), owner))
        ++name.step;
    name.path = nameAt(name.natural, name.step);
    name.suffixed = name.step > 0;
    return name;
}

} // namespace output_naming

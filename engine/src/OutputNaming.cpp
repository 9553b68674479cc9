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
    if (2 * (m_reservations.size() + 1) > m_slots.size())
        rehash(m_slots.empty() ? 16 : 2 * m_slots.size());
    const size_t mask = m_slots.size() - 1;
    size_t slot = qHash(path) & mask;
    for (; m_slots[slot] >= 0; slot = (slot + 1) & mask) {
        const Reservation &held = m_reservations[static_cast<size_t>(m_slots[slot])];
        if (held.name == path)
            return held.owner == owner;
    }
    m_slots[slot] = static_cast<qint32>(m_reservations.size());
    m_reservations.push_back({path, owner});
    return true;
}

// Makes a table of size slots (a power of two) for the reservations held.
void NameReservations::rehash(size_t size)
{
    m_slots.assign(size, -1);
    const size_t mask = size - 1;
    for (size_t i = 0; i < m_reservations.size(); ++i) {
        size_t slot = qHash(m_reservations[i].name) & mask;
        while (m_slots[slot] >= 0)
            slot = (slot + 1) & mask;
        m_slots[slot] = static_cast<qint32>(i);
    }
}

void NameReservations::clear()
{
    QMutexLocker locker(&m_mutex);
    std::vector<Reservation>().swap(m_reservations);
    std::vector<qint32>().swap(m_slots);
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

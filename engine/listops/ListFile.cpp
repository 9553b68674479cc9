// List files ("-file-list", "-test-list"): one path per line, from a regular
// file or a pipe. A pipe may never end, so the reading is bounded in total
// and per line; a device (a terminal, /dev/zero) is refused before it is
// opened.
#include <engine/FileLoading.h>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include <QFile>

#include <localization/LocaleText.h>

namespace FileLoading {

namespace {

// Empty when path may be read as a list: a regular file, a pipe, or
// something that open() will refuse with its own reason (missing, a folder).
QString refusalOfKind(const QString &path)
{
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return QString();
    if (S_ISREG(info.st_mode) || S_ISFIFO(info.st_mode) || S_ISDIR(info.st_mode))
        return QString();
    return NM_TR("Not a regular file or a pipe.");
}

// Splits the bytes read so far into trimmed UTF-8 lines, within the bounds.
class LineCollector
{
public:
    explicit LineCollector(QStringList *entries) : m_entries(entries) {}

    bool add(const char *bytes, qint64 count, QString *errorText)
    {
        m_total += count;
        if (m_total > kMaxListFileBytes) {
            *errorText = NM_TR("The list is longer than %s MB.",
                               QByteArray::number(kMaxListFileBytes >> 20).constData());
            return false;
        }
        m_pending.append(bytes, int(count));
        int start = 0;
        for (int end; (end = m_pending.indexOf('\n', start)) >= 0; start = end + 1) {
            if (!take(m_pending.mid(start, end - start), errorText))
                return false;
        }
        m_pending.remove(0, start);
        return m_pending.size() <= kMaxListLineBytes || tooLong(m_lines + 1, errorText);
    }

    // The last line, when the input does not end with a line end.
    bool finish(QString *errorText) { return m_pending.isEmpty() || take(m_pending, errorText); }

private:
    bool take(const QByteArray &line, QString *errorText)
    {
        ++m_lines;
        if (line.size() > kMaxListLineBytes)
            return tooLong(m_lines, errorText);
        *m_entries << QString::fromUtf8(line).trimmed();
        return true;
    }

    static bool tooLong(int line, QString *errorText)
    {
        *errorText = NM_TR("Line %1$s is longer than %2$s bytes.", QByteArray::number(line).constData(),
                           QByteArray::number(kMaxListLineBytes).constData());
        return false;
    }

    QStringList *m_entries;
    QByteArray m_pending;
    qint64 m_total = 0;
    int m_lines = 0;
};

// What one read(2) returns: a pipe gives what it holds, without waiting for
// a whole buffer, so an endless line is noticed as soon as it is too long.
qint64 readSome(int fd, char *buffer, size_t size)
{
    ssize_t count;
    do {
        count = ::read(fd, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

bool readOpenList(QFile &file, QStringList *entries, QString *errorText)
{
    LineCollector lines(entries);
    char chunk[16384];
    for (;;) {
        const qint64 count = readSome(file.handle(), chunk, sizeof chunk);
        if (count < 0) {
            *errorText = QString::fromLocal8Bit(std::strerror(errno));
            return false;
        }
        if (count == 0)
            return lines.finish(errorText);
        if (!lines.add(chunk, count, errorText))
            return false;
    }
}

} // namespace

bool readListFile(const QString &path, QStringList *entries, QString *errorText)
{
    entries->clear();
    *errorText = refusalOfKind(path);
    if (!errorText->isEmpty())
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        *errorText = file.errorString();
        return false;
    }
    if (readOpenList(file, entries, errorText))
        return true;
    entries->clear();
    return false;
}

} // namespace FileLoading

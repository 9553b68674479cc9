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

// Splits the bytes read so far into lines, within the bounds, and hands each
// on as soon as it is whole. A CR ends a line; an LF right after it belongs
// to the same line end, also when the two arrive in different reads.
class LineCollector
{
public:
    explicit LineCollector(const LineTaker &take) : m_take(take) {}

    // False when the reading ends here: an error (errorText says why) or a
    // taker that asked to stop (stopped()).
    bool add(const char *bytes, qint64 count, QString *errorText)
    {
        m_total += count;
        if (m_total > kMaxListFileBytes) {
            *errorText = NM_TR("The list is longer than %s MB.",
                               QByteArray::number(kMaxListFileBytes >> 20).constData());
            return false;
        }
        for (const char *end = bytes + count; bytes != end; ++bytes) {
            const bool lineFeedAfterReturn = *bytes == '\n' && m_afterReturn;
            m_afterReturn = *bytes == '\r';
            if (lineFeedAfterReturn)
                continue;
            if (*bytes != '\n' && *bytes != '\r')
                m_pending.append(*bytes);
            else if (!take(errorText))
                return false;
        }
        return m_pending.size() <= kMaxListLineBytes || tooLong(errorText);
    }

    // The last line, when the input does not end with a line end.
    bool finish(QString *errorText) { return m_pending.isEmpty() || take(errorText); }

    bool stopped() const { return m_stopped; }

private:
    bool take(QString *errorText)
    {
        if (m_pending.size() > kMaxListLineBytes)
            return tooLong(errorText);
        ++m_lines;
        m_stopped = !m_take(m_pending);
        m_pending.clear();
        return !m_stopped;
    }

    bool tooLong(QString *errorText) const
    {
        *errorText = NM_TR("Line %1$s is longer than %2$s bytes.", QByteArray::number(m_lines + 1).constData(),
                           QByteArray::number(kMaxListLineBytes).constData());
        return false;
    }

    const LineTaker &m_take;
    QByteArray m_pending;
    qint64 m_total = 0;
    int m_lines = 0;
    bool m_afterReturn = false;
    bool m_stopped = false;
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

bool readOpenList(QFile &file, const LineTaker &take, QString *errorText)
{
    LineCollector lines(take);
    char chunk[16384];
    for (;;) {
        const qint64 count = readSome(file.handle(), chunk, sizeof chunk);
        if (count < 0) {
            *errorText = QString::fromLocal8Bit(std::strerror(errno));
            return false;
        }
        if (count == 0)
            return lines.finish(errorText) || lines.stopped();
        if (!lines.add(chunk, count, errorText))
            return lines.stopped();
    }
}

} // namespace

bool readListLines(const QString &path, const LineTaker &take, QString *errorText)
{
    *errorText = refusalOfKind(path);
    if (!errorText->isEmpty())
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        *errorText = file.errorString();
        return false;
    }
    return readOpenList(file, take, errorText);
}

} // namespace FileLoading

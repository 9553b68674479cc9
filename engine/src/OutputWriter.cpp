#include "OutputWriter.h"

#if defined(__linux__)
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {
// Large enough for few system calls, small enough to stay in the cache.
constexpr qint64 kBufferSize = 256 * 1024;
// Below this, reserving space ahead saves nothing worth a system call.
constexpr qint64 kReserveFrom = 1024 * 1024;
} // namespace

OutputWriter::OutputWriter(const QString &path, qint64 pieceSize)
    : m_file(path), m_pieceSize(pieceSize)
{
}

bool OutputWriter::open(qint64 expectedSize)
{
    // Unbuffered: this class is the buffer.
    m_fill = 0;
    m_written = 0;
    m_reserved = false;
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        return false;
    // A small file gets a small buffer: most runs are short, and a large
    // buffer would cost more to set up than the whole file to write.
    m_bufferSize = qBound(2 * m_pieceSize, expectedSize + m_pieceSize, kBufferSize);
    m_buffer.reset(new char[static_cast<size_t>(m_bufferSize)]);
#if defined(__linux__)
    // Best effort: allocating the blocks at once makes the writes cheaper.
    // The file's size is left alone, so an unused reservation never shows;
    // what lies beyond the end is given back when the file is closed.
    if (expectedSize >= kReserveFrom)
        m_reserved = fallocate(m_file.handle(), FALLOC_FL_KEEP_SIZE, 0, expectedSize) == 0;
#else
    Q_UNUSED(expectedSize);
#endif
    return true;
}

qint64 OutputWriter::commit(qint64 count)
{
    m_fill += count;
    if (m_fill + m_pieceSize > m_bufferSize && !flush())
        return -1;
    return count;
}

bool OutputWriter::flush()
{
    const char *data = m_buffer.get();
    qint64 left = m_fill;
    m_fill = 0;
    while (left > 0) {
        const qint64 written = m_file.write(data, left);
        if (written <= 0) {
            m_file.close();
            return false;
        }
        data += written;
        left -= written;
        m_written += written;
    }
    return true;
}

void OutputWriter::trimReservation()
{
#if defined(__linux__)
    // Truncating to the current size frees blocks reserved past the end.
    if (m_reserved && m_file.isOpen())
        (void)::ftruncate(m_file.handle(), m_written);
#endif
    m_reserved = false;
}

bool OutputWriter::finish()
{
    const bool flushed = m_file.isOpen() && flush();
    trimReservation();
    m_file.close();
    return flushed;
}

void OutputWriter::close()
{
    if (m_file.isOpen() && flush())
        trimReservation();
    m_file.close();
}

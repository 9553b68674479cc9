#include "OutputWriter.h"

#include <cerrno>

#include <nmplatform/nmwipe.h>

#include "OutputPlacement.h"

namespace {
// Large enough for few system calls, small enough to stay in the cache.
constexpr qint64 kBufferSize = 256 * 1024;
// Below this, reserving space ahead saves nothing worth a system call.
constexpr qint64 kReserveFrom = 1024 * 1024;
} // namespace

OutputWriter::OutputWriter(const QString &outputPath, qint64 pieceSize)
    : m_outputPath(outputPath), m_pieceSize(pieceSize)
{
    nm_file_init(&m_file);
}

OutputWriter::~OutputWriter()
{
    nm_file_close(&m_file);
    if (!m_temporary.isEmpty() && !m_kept)
        nm_file_delete(output_placement::native(m_temporary).constData());
    nm_wipe(m_buffer.get(), static_cast<size_t>(m_bufferSize));
}

uint32_t OutputWriter::open(qint64 expectedSize, uint32_t mode)
{
    const uint32_t rc = output_placement::createTemporary(m_outputPath, mode, &m_file, &m_temporary);
    if (rc != 0) {
        m_temporary.clear(); // nothing of ours to remove
        return rc;
    }
    nm_file_identify(&m_file, &m_identity);
    // A small file gets a small buffer: most runs are short, and a large
    // buffer would cost more to set up than the whole file to write.
    m_bufferSize = qBound(2 * m_pieceSize, expectedSize + m_pieceSize, kBufferSize);
    m_buffer.reset(new char[static_cast<size_t>(m_bufferSize)]);
    // Best effort: allocating the blocks at once makes the writes cheaper.
    // The file's size is left alone, so an unused reservation never shows;
    // what lies beyond the end is given back when the file is finished.
    if (expectedSize >= kReserveFrom)
        m_reserved = nm_file_reserve(&m_file, static_cast<uint64_t>(expectedSize)) == 0;
    return 0;
}

bool OutputWriter::commit(qint64 count)
{
    m_fill += count;
    if (m_fill + m_pieceSize > m_bufferSize)
        return flush();
    return m_error == 0;
}

// Every fault is final: a short write is continued, but a write that moves
// nothing, like any error, ends the output.
bool OutputWriter::flush()
{
    const char *data = m_buffer.get();
    qint64 left = m_error == 0 ? m_fill : 0;
    m_fill = 0;
    while (left > 0) {
        size_t written = 0;
        m_error = nm_file_write(&m_file, data, static_cast<size_t>(left), &written);
        if (m_error == 0 && written == 0)
            m_error = EIO;
        if (m_error != 0)
            return false;
        data += written;
        left -= static_cast<qint64>(written);
        m_written += static_cast<qint64>(written);
    }
    return m_error == 0;
}

uint32_t OutputWriter::finish(bool syncData, uint32_t *syncError)
{
    *syncError = 0;
    if (flush() && m_reserved)
        m_error = nm_file_truncate(&m_file, static_cast<uint64_t>(m_written));
    if (m_error == 0 && syncData)
        *syncError = nm_file_sync_data(&m_file);
    const uint32_t closed = nm_file_close(&m_file);
    if (m_error == 0)
        m_error = closed;
    return m_error;
}

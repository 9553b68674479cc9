// The output file of a worker run, written behind a buffer that the
// decrypter fills in place, so each plaintext piece is copied once and the
// system sees few large writes.
#pragma once

#include <memory>

#include <QFile>

class OutputWriter
{
public:
    OutputWriter(const QString &path, qint64 pieceSize);

    // Creates or truncates the file. expectedSize: a bound on what will be
    // written, used to reserve the space of large outputs in one step.
    bool open(qint64 expectedSize);
    // Room for the next piece (pieceSize bytes).
    char *piece() { return m_buffer.get() + m_fill; }
    // Takes count bytes placed at piece(). -1 when a write to the file
    // failed (the file is closed then), else count.
    qint64 commit(qint64 count);
    // Writes what is buffered and closes. False when a write failed.
    bool finish();
    // Closes and removes the file (a partial output).
    void discard() { m_file.remove(); }
    // Closes, keeping what was written so far.
    void close();

private:
    bool flush();
    // Gives back the reserved blocks beyond what was written.
    void trimReservation();

    QFile m_file;
    std::unique_ptr<char[]> m_buffer;
    qint64 m_bufferSize = 0;
    qint64 m_pieceSize;
    qint64 m_fill = 0;
    qint64 m_written = 0;
    bool m_reserved = false;
};

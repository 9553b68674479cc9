// The temporary file of a worker run, written behind a buffer that the
// decrypter fills in place, so each plaintext piece is copied once and the
// system sees few large writes. Until keep() the file belongs to this
// object: its destructor removes it, so every way out of a run that did not
// place the plaintext leaves nothing behind. The buffer held plaintext and
// is wiped when the writer goes.
#pragma once

#include <memory>

#include <QString>

#include <nmplatform/nmplace.h>

class OutputWriter
{
public:
    OutputWriter(const QString &outputPath, qint64 pieceSize);
    ~OutputWriter();
    OutputWriter(const OutputWriter &) = delete;
    OutputWriter &operator=(const OutputWriter &) = delete;

    // Creates the temporary file beside the output path with the permission
    // bits mode. expectedSize: a bound on what will be written, used to
    // reserve the space of large outputs in one step. 0 or the error number.
    uint32_t open(qint64 expectedSize, uint32_t mode);
    // Room for the next piece (pieceSize bytes).
    char *piece() { return m_buffer.get() + m_fill; }
    // Takes count bytes placed at piece(). False once any write has failed.
    bool commit(qint64 count);
    // Writes what is buffered, syncs the data when syncData, and closes.
    // Returns the first write or close error, 0 when none; a failed sync is
    // not one of them and goes to *syncError (0 when it worked or was not asked).
    uint32_t finish(bool syncData, uint32_t *syncError);
    // The file has been given a name that is no longer this object's to remove.
    void keep() { m_kept = true; }

    const QString &temporaryPath() const { return m_temporary; }
    // Of the file created, taken when it was opened.
    const nm_file_identity_t &identity() const { return m_identity; }

private:
    bool flush();

    QString m_outputPath;
    QString m_temporary;
    nm_file_t m_file;
    nm_file_identity_t m_identity{};
    std::unique_ptr<char[]> m_buffer;
    qint64 m_bufferSize = 0;
    qint64 m_pieceSize;
    qint64 m_fill = 0;
    qint64 m_written = 0;
    uint32_t m_error = 0;
    bool m_reserved = false;
    bool m_kept = false;
};

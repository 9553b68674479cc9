// Real files for the engine tests: envelopes from the writer tool, plain
// files, and a batch that runs to its end.
#pragma once

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <engine/DecryptManager.h>
#include <envelope_writer/EnvelopeWriter.h>

namespace engine_test {

inline const char *kPassphrase = "correct horse";

inline QString envelope(const QString &path, const QByteArray &plain,
                        const char *passphrase = kPassphrase)
{
    std::string why;
    if (!envelope_writer::writeEnvelope(QFile::encodeName(path).toStdString(),
                                        plain.toStdString(), passphrase, {}, &why))
        qFatal("cannot write envelope %s: %s", qPrintable(path), why.c_str());
    return path;
}

inline QString patternEnvelope(const QString &path, quint64 size)
{
    std::string why;
    if (!envelope_writer::writePatternEnvelope(QFile::encodeName(path).toStdString(), size,
                                               kPassphrase, {}, &why))
        qFatal("cannot write envelope %s: %s", qPrintable(path), why.c_str());
    return path;
}

// An envelope of size bytes whose payload is a hole: costs no disk and
// decrypts (to noise) for long enough that a stop always lands mid-file.
inline QString sparseEnvelope(const QString &path, qint64 size)
{
    const std::string trailer = envelope_writer::buildTrailer(quint64(size), kPassphrase);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(size) || !file.seek(size)
        || file.write(trailer.data(), qint64(trailer.size())) != qint64(trailer.size()))
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// Waits, serving events, until the manager has gone idle.
inline bool waitIdle(DecryptManager &manager, int timeoutMs = 30000)
{
    QElapsedTimer clock;
    clock.start();
    while (manager.isBusy() && clock.elapsed() < timeoutMs)
        QTest::qWait(2);
    QTest::qWait(5); // the dispatcher's own end report
    return !manager.isBusy();
}

// Waits, without serving events, until a worker holds a task. Nothing can
// leave the busy list meanwhile: workers return through queued events.
inline bool pinBusy(DecryptManager &manager)
{
    QElapsedTimer clock;
    clock.start();
    while (manager.runningCount() == 0 && clock.elapsed() < 30000)
        QThread::yieldCurrentThread();
    return manager.runningCount() > 0;
}

inline void runBatch(DecryptManager &manager, const QStringList &paths)
{
    manager.addFiles(paths);
    manager.start(QString::fromLatin1(kPassphrase));
    QVERIFY(waitIdle(manager));
}

} // namespace engine_test

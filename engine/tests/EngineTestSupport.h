// Real files for the engine tests: envelopes from the writer tool, plain
// files, and batches run to their end.
#pragma once

#include <functional>

#include <sys/stat.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QMap>
#include <QSignalSpy>
#include <QTest>

#include <engine/DecryptManager.h>
#include <envelope_writer/EnvelopeWriter.h>

namespace engine_test {

inline const char *kPassphrase = "correct horse";
// Generous for sanitizer builds; never a timing assertion.
inline const int kWait = 60000;

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

inline QString envelope(const QString &path, const QByteArray &plain, const char *pass = kPassphrase)
{
    std::string why;
    if (!envelope_writer::writeEnvelope(QFile::encodeName(path).toStdString(), plain.toStdString(),
                                        pass, {}, &why))
        qFatal("cannot write envelope %s: %s", qPrintable(path), why.c_str());
    return path;
}

// An envelope of 2^log2Size bytes (1 GiB) whose payload is a hole: costs no
// disk and decrypts (to noise) for long enough that a cancel lands mid-file.
inline QString sparseEnvelope(const QString &path, int log2Size = 30, const char *pass = kPassphrase)
{
    const qint64 size = qint64(1) << log2Size;
    QFile file(path);
    const std::string trailer = envelope_writer::buildTrailer(quint64(size), pass);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(size) || !file.seek(size)
        || file.write(trailer.data(), qint64(trailer.size())) != qint64(trailer.size()))
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

// Every entry of folder, hidden ones included, by name: a file's content, a
// link's target, or the kind of anything else. Never opens a FIFO.
inline QMap<QString, QByteArray> snapshot(const QString &folder)
{
    QMap<QString, QByteArray> entries;
    const QDir::Filters all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    for (const QString &name : QDir(folder).entryList(all)) {
        const QByteArray path = QFile::encodeName(folder + '/' + name);
        struct stat st;
        lstat(path.constData(), &st);
        char target[4096];
        const ssize_t n = S_ISLNK(st.st_mode) ? readlink(path.constData(), target, sizeof target) : 0;
        entries[name] = S_ISREG(st.st_mode)   ? "file " + readFile(QFile::decodeName(path))
                        : S_ISLNK(st.st_mode) ? "link " + QByteArray(target, int(qMax<ssize_t>(n, 0)))
                        : S_ISDIR(st.st_mode) ? QByteArray("folder")
                                              : "mode " + QByteArray::number(st.st_mode, 8);
    }
    return entries;
}

// Waits until done() or ms have passed: spinning, so that no event is served
// (no worker can report), or serving events.
inline bool waitUntil(const std::function<bool()> &done, bool serve = false, int ms = kWait)
{
    const QDeadlineTimer deadline(ms);
    while (!done() && !deadline.hasExpired())
        serve ? QTest::qWait(20) : QThread::yieldCurrentThread();
    return done();
}

// Starts a batch of what is pending, runs then(), and serves events until
// allFinished(). True when the batch ended idle with allFinished() exactly
// once, counted after the dispatcher's own end report has been served too.
inline bool finishBatch(DecryptManager &manager, const std::function<void()> &then = {})
{
    QSignalSpy done(&manager, &DecryptManager::allFinished);
    manager.start(QString::fromLatin1(kPassphrase));
    if (then)
        then();
    if (!done.wait(60000))
        return false;
    manager.wait();
    QCoreApplication::processEvents();
    return done.count() == 1 && !manager.isBusy();
}

} // namespace engine_test

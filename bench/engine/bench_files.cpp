// Many small envelopes through the decrypt manager with 1 and 2 threads
// allowed, beside `cp -r` of the same folder, in interleaved rounds: files
// per second and CPU seconds. Before them, the memory of one large batch: the
// peak resident size while the manager decrypts it, above the idle size.
// Arguments: file count (default 2000), size in bytes (default 4096), batch
// count (default 100000, 0 skips the batch). Folders are made under TMPDIR.
#include <cstdio>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <QCoreApplication>
#include <QDir>
#include <QStringBuilder>
#include <QEventLoop>
#include <QTemporaryDir>

#include <engine/DecryptManager.h>
#include <envelope_writer/EnvelopeWriter.h>

#include "BenchStats.h"
#include "BenchSupport.h"

namespace {

const char *kPassphrase = "bench passphrase";

// Each path in one allocation of its size, as a folder walk makes them; a
// path grown by appending would hold twice its size.
QStringList envelopePaths(const QString &folder, int count)
{
    QStringList paths;
    for (int i = 0; i < count; ++i)
        paths << QString(folder % QLatin1String("/f") % QString::number(i) % QLatin1String(".nimbra-env"));
    return paths;
}

QStringList makeEnvelopes(const QString &folder, int count, int size)
{
    QDir().mkpath(folder);
    const QStringList paths = envelopePaths(folder, count);
    for (const QString &path : paths) {
        if (!envelope_writer::writePatternEnvelope(QFile::encodeName(path).toStdString(),
                                                   quint64(size), kPassphrase))
            qFatal("cannot write the envelopes");
    }
    return paths;
}

// Hands freed heap back to the system, so that resident sizes measure what
// is in use, not what earlier work left behind.
void returnFreedMemory()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

// Decrypts paths; with peak, *peak receives the peak resident size (KiB) of
// the run, which starts from the resident size at the call.
bench::Measure decryptAll(const QStringList &paths, int threads, long *peak = nullptr)
{
    bench::resetPeak();
    DecryptManager manager;
    manager.onChangeNumThreads(threads);
    manager.addFiles(paths);
    QEventLoop loop;
    QObject::connect(&manager, &DecryptManager::allFinished, &loop, [&] {
        if (!manager.isBusy())
            loop.quit();
    });
    const bench::Measure m = bench::runHere([&] {
        manager.start(QString::fromLatin1(kPassphrase));
        loop.exec();
        return manager.finishedCount() == paths.size();
    });
    if (peak)
        *peak = bench::peakKiB();
    return m;
}

// The idle size is taken once the envelopes are written; the paths count
// above it, as a load would hold them.
void measureBatch(const QTemporaryDir &dir, int count, int size)
{
    const QString folder = dir.filePath(QStringLiteral("batch"));
    makeEnvelopes(folder, count, size);
    returnFreedMemory();
    const long idle = bench::residentKiB();
    const QStringList paths = envelopePaths(folder, count);
    long peak = 0;
    const bench::Measure m = decryptAll(paths, 2, &peak);
    if (!m.ok)
        qFatal("the batch did not decrypt");
    std::printf("batch of %d envelopes of %d bytes, 2 threads: %.1f s, %.0f files/s, "
                "resident before %.1f MiB, peak %.1f MiB\n",
                count, size, m.seconds, count / m.seconds, idle / 1024.0, peak / 1024.0);
    bench::Figure above;
    above.add((peak - idle) / 1024.0);
    const QByteArray figure =
        QStringLiteral("batch of %1 small envelopes: peak above idle").arg(count).toUtf8();
    bench::report(figure.constData(), above, "MiB", "<= 64", 1, true);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? QByteArray(argv[1]).toInt() : 2000;
    const int size = argc > 2 ? QByteArray(argv[2]).toInt() : 4096;
    const int batch = argc > 3 ? QByteArray(argv[3]).toInt() : 100000;
    QTemporaryDir dir;
    // Every run gets a folder of its own and nothing is deleted before the
    // end: some file systems make creating files slow for a while after many
    // deletions, which would measure the previous run instead of this one.
    int folders = 0;
    const auto freshFolder = [&] {
        return makeEnvelopes(dir.filePath(QStringLiteral("envelopes%1").arg(folders++)), count,
                             size);
    };
    if (batch > 0)
        measureBatch(dir, batch, size);
    returnFreedMemory();
    std::printf("%d envelopes of %d bytes in %s, %d interleaved rounds\n", count, size,
                qPrintable(QDir::tempPath()), bench::kRounds);
    bench::Figure one, two, copy, oneCpu, twoCpu, vsCopy, scaling;
    for (int round = 0; round < bench::kRounds; ++round) {
        const bench::Measure a = decryptAll(freshFolder(), 1);
        long peak = 0;
        const QStringList paths = freshFolder();
        const bench::Measure b = decryptAll(paths, 2, &peak);
        const QString target = dir.filePath(QStringLiteral("copy%1").arg(round));
        const bench::Measure c = bench::runCommand(
            QStringLiteral("cp"), {"-r", QFileInfo(paths.first()).path(), target});
        if (!a.ok || !b.ok || !c.ok)
            qFatal("a run failed");
        one.add(count / a.seconds);
        two.add(count / b.seconds);
        copy.add(count / c.seconds);
        oneCpu.add(a.cpuSeconds);
        twoCpu.add(b.cpuSeconds);
        vsCopy.add(c.seconds / b.seconds);
        scaling.add(a.seconds / b.seconds);
        vsCopy.notePeak(peak);
        scaling.notePeak(peak);
    }
    bench::report("1 thread", one, "files/s", "", 0);
    bench::report("1 thread, CPU seconds", oneCpu, "s", "");
    bench::report("2 threads", two, "files/s", "", 0);
    bench::report("2 threads, CPU seconds", twoCpu, "s", "");
    bench::report("cp -r", copy, "files/s", "", 0);
    const QString files = QStringLiteral("%1 envelopes of %2 bytes").arg(count).arg(size);
    bench::report((files + ", 2 threads / cp -r").toUtf8().constData(), vsCopy, "x", ">= 1.0", 3,
                  true);
    bench::report((files + ", 2 threads / 1 thread").toUtf8().constData(), scaling, "x",
                  ">= 1.7", 3, true);
    return 0;
}

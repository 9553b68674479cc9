// Many small envelopes through the decrypt manager with 1, 2 and 8 threads
// allowed, in files per second and CPU seconds, beside `cp -r` of the same
// folder. Arguments: file count (default 2000), size in bytes (default 4096).
// The folder is made under TMPDIR (default /tmp).
#include <unistd.h>

#include <cstdio>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QTemporaryDir>

#include <engine/DecryptManager.h>
#include <envelope_writer/EnvelopeWriter.h>

#include "BenchSupport.h"

namespace {

const char *kPassphrase = "bench passphrase";

QStringList makeEnvelopes(const QString &folder, int count, int size)
{
    QDir().mkpath(folder);
    QStringList paths;
    for (int i = 0; i < count; ++i) {
        const QString path = folder + QStringLiteral("/f%1.nimbra-env").arg(i);
        if (!envelope_writer::writePatternEnvelope(QFile::encodeName(path).toStdString(),
                                                   quint64(size), kPassphrase))
            return {};
        paths << path;
    }
    return paths;
}

// Removes the outputs of the previous run and lets the file system settle,
// so its write-back stays out of the next timing.
void removeOutputs(const QStringList &paths)
{
    for (const QString &path : paths)
        QFile::remove(path.chopped(11));
    ::sync();
}

bench::Measure decryptAll(const QStringList &paths, int threads)
{
    DecryptManager manager;
    manager.onChangeNumThreads(threads);
    manager.addFiles(paths);
    QEventLoop loop;
    QObject::connect(&manager, &DecryptManager::allFinished, &loop, [&] {
        if (!manager.isBusy())
            loop.quit();
    });
    return bench::runHere([&] {
        manager.start(QString::fromLatin1(kPassphrase));
        loop.exec();
        return manager.finishedCount() == paths.size();
    });
}

void printLine(const QString &name, const bench::Measure &m, int files)
{
    if (!m.ok) {
        std::printf("  %-22s failed\n", qPrintable(name));
        return;
    }
    std::printf("  %-22s %7.3f s %9.0f files/s   cpu %6.3f s\n", qPrintable(name), m.seconds,
                files / m.seconds, m.cpuSeconds);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? QByteArray(argv[1]).toInt() : 2000;
    const int size = argc > 2 ? QByteArray(argv[2]).toInt() : 4096;
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("envelopes"));
    const QStringList paths = makeEnvelopes(folder, count, size);
    if (paths.isEmpty()) {
        std::fprintf(stderr, "cannot write the envelopes\n");
        return 1;
    }
    std::printf("%d envelopes of %d bytes, best of 3\n", count, size);
    double oneThread = 0, twoThreads = 0;
    for (int threads : {1, 2, 8}) {
        const bench::Measure m = bench::best(
            3, [&] { removeOutputs(paths); }, [&] { return decryptAll(paths, threads); });
        printLine(QStringLiteral("%1 thread(s) allowed").arg(threads), m, count);
        if (threads == 1)
            oneThread = m.seconds;
        if (threads == 2)
            twoThreads = m.seconds;
    }
    removeOutputs(paths);
    const QString copy = dir.filePath(QStringLiteral("copy"));
    const bench::Measure cp = bench::best(
        3, [&] { QDir(copy).removeRecursively(); ::sync(); },
        [&] { return bench::runCommand(QStringLiteral("cp"), {"-r", folder, copy}); });
    printLine(QStringLiteral("cp -r"), cp, count);
    if (oneThread > 0 && twoThreads > 0)
        std::printf("  2 threads / 1 thread:  %.2f  (goal >= 1.6 on two cores)\n",
                    oneThread / twoThreads);
    return 0;
}

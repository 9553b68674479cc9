// Loads a tree of 100,000 small files (a tenth of them envelopes without the
// suffix, so only the content probe can find them) through the task manager,
// with only-encrypted off and on in interleaved rounds, and prints files per
// second, the probe's own cost (wall clock and CPU time) and the peak
// resident memory of each. The tree lives under /tmp and is removed at the end.
//
//   bench_loading [files]   (default 100000)
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include "BenchStats.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>
#include <envelope_writer/EnvelopeWriter.h>

namespace {

const int kFoldersPerLevel = 10;

QByteArray envelopeBytes(const QString &scratch)
{
    const QString path = scratch + QStringLiteral("/sample.nimbra-env");
    std::string why;
    if (!envelope_writer::writeEnvelope(QFile::encodeName(path).toStdString(), "small payload",
                                        "bench", {}, &why))
        qFatal("cannot write the sample envelope: %s", why.c_str());
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    const QByteArray bytes = file.readAll();
    file.close();
    QFile::remove(path);
    return bytes;
}

// Spreads files over 10 x 10 folders; every tenth file is an envelope
// named like the others. Returns the number of envelopes written.
int buildTree(const QString &root, int files)
{
    const QByteArray envelope = envelopeBytes(root);
    const QByteArray plain(64, 'p');
    const int folders = kFoldersPerLevel * kFoldersPerLevel;
    int envelopes = 0;
    for (int i = 0; i < files; ++i) {
        const int folder = i % folders;
        const QString dir = QStringLiteral("%1/d%2/e%3")
                                .arg(root)
                                .arg(folder / kFoldersPerLevel)
                                .arg(folder % kFoldersPerLevel);
        if (i < folders)
            QDir().mkpath(dir);
        QFile file(QStringLiteral("%1/f%2.dat").arg(dir).arg(i));
        const bool isEnvelope = i % 10 == 0;
        if (!file.open(QIODevice::WriteOnly) || file.write(isEnvelope ? envelope : plain) < 0)
            qFatal("cannot write %s", qPrintable(file.fileName()));
        envelopes += isEnvelope;
    }
    return envelopes;
}

struct Round {
    double seconds = 0;
    double cpuSeconds = 0; // of the whole process: the load runs on the task manager's thread
    long peakKiB = 0;
    QString summary;
};

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// One load of root through the task manager, timed from request to end.
Round loadOnce(const QString &root, bool onlyEncrypted)
{
    TaskManager *tasks = TaskManager::instance();
    Round round;
    QObject::connect(tasks, &TaskManager::filesLoaded, tasks,
                     [&round](const QString &msg) { round.summary = msg; }, Qt::DirectConnection);
    bench::resetPeak();
    const double cpuBefore = cpuSeconds();
    QElapsedTimer clock;
    clock.start();
    tasks->loadFiles({root}, onlyEncrypted);
    tasks->wait();
    round.seconds = clock.nsecsElapsed() / 1e9;
    round.cpuSeconds = cpuSeconds() - cpuBefore;
    round.peakKiB = bench::peakKiB();
    QObject::disconnect(tasks, &TaskManager::filesLoaded, tasks, nullptr);
    QCoreApplication::sendPostedEvents();
    DecryptManager::instance()->clearPending();
    return round;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int files = argc > 1 ? std::max(100, atoi(argv[1])) : 100000;
    QTemporaryDir scratch(QDir::tempPath() + QStringLiteral("/nm-bench-loading-XXXXXX"));
    if (!scratch.isValid())
        qFatal("cannot create a folder under %s", qPrintable(QDir::tempPath()));
    const QString root = scratch.path() + QStringLiteral("/tree");
    QDir().mkpath(root);
    const int envelopes = buildTree(root, files);
    std::printf("tree: %d files in %d folders, %d envelopes without the suffix; "
                "peak RSS before loading %ld KiB\n",
                files, kFoldersPerLevel * kFoldersPerLevel, envelopes, bench::peakKiB());

    bench::Figure plain, probed, probe, probeCpu;
    QString plainSummary, probedSummary;
    for (int i = 0; i < bench::kRounds; ++i) {
        const Round off = loadOnce(root, false);
        const Round on = loadOnce(root, true);
        plain.add(files / off.seconds);
        probed.add(files / on.seconds);
        probe.add((on.seconds - off.seconds) / files * 1e6);
        probeCpu.add((on.cpuSeconds - off.cpuSeconds) / files * 1e6);
        plain.notePeak(off.peakKiB);
        probed.notePeak(on.peakKiB);
        probe.notePeak(on.peakKiB);
        plainSummary = off.summary;
        probedSummary = on.summary;
    }
    std::printf("only-encrypted off: %s; on: %s\n", qPrintable(plainSummary),
                qPrintable(probedSummary));
    const QString entries = QStringLiteral("loading %1 entries").arg(files);
    bench::report((entries + ", only-encrypted off").toUtf8().constData(), plain, "files/s",
                  ">= 50000", 0);
    bench::report("probe per file, CPU time", probeCpu, "us", "", 1);
    bench::report("probe per file (only-encrypted on minus off)", probe, "us", "<= 8", 1, true);
    bench::report((entries + ", only-encrypted on").toUtf8().constData(), probed, "files/s",
                  ">= 100000", 0, true);

    TaskManager::release();
    DecryptManager::release();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}

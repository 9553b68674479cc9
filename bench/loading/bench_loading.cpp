// Loads a tree of 100,000 small files (a tenth of them envelopes without the
// suffix, so only the content probe can find them) through the task manager,
// with only-encrypted off and on, and prints files per second, the probe's
// own cost and the peak resident memory. The tree lives under /tmp and is
// removed at the end.
//
//   bench_loading [files]   (default 100000)
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>
#include <envelope_writer/EnvelopeWriter.h>

namespace {

const int kFoldersPerLevel = 10;
const int kRounds = 3;

long peakRssKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

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
    QString summary;
};

// One load of root through the task manager, timed from request to end.
Round loadOnce(const QString &root, bool onlyEncrypted)
{
    TaskManager *tasks = TaskManager::instance();
    Round round;
    QObject::connect(tasks, &TaskManager::filesLoaded, tasks,
                     [&round](const QString &msg) { round.summary = msg; }, Qt::DirectConnection);
    QElapsedTimer clock;
    clock.start();
    tasks->loadFiles({root}, onlyEncrypted);
    tasks->wait();
    round.seconds = clock.nsecsElapsed() / 1e9;
    QObject::disconnect(tasks, &TaskManager::filesLoaded, tasks, nullptr);
    QCoreApplication::sendPostedEvents();
    DecryptManager::instance()->clearPending();
    return round;
}

// Median of the rounds' times; prints the last summary.
double measure(const char *label, const QString &root, bool onlyEncrypted, int files)
{
    std::vector<double> times;
    QString summary;
    for (int i = 0; i < kRounds; ++i) {
        const Round round = loadOnce(root, onlyEncrypted);
        times.push_back(round.seconds);
        summary = round.summary;
    }
    std::sort(times.begin(), times.end());
    const double median = times[times.size() / 2];
    std::printf("%-22s %8.3f s  %10.0f files/s  peak RSS %6ld KiB  (%s)\n", label, median,
                files / median, peakRssKiB(), qPrintable(summary));
    return median;
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
                files, kFoldersPerLevel * kFoldersPerLevel, envelopes, peakRssKiB());

    const double plain = measure("only-encrypted off", root, false, files);
    const double probed = measure("only-encrypted on", root, true, files);
    const double probeMicros = (probed - plain) / files * 1e6;
    std::printf("probe: %.1f us per file, %.0f probes/s\n", probeMicros,
                probeMicros > 0 ? 1e6 / probeMicros : 0.0);
    std::printf("goal 50,000 entries/s with only-encrypted off: %s\n",
                files / plain >= 50000 ? "met" : "MISSED");

    TaskManager::release();
    DecryptManager::release();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}

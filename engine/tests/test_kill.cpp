#include <csignal>

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

namespace {

std::atomic<int> g_callsLeft{0};

// Ends the process (SIGKILL: no clean-up of any kind) just before the file
// call that the countdown reaches: a write, sync, close, creation or
// placement, so every state that the disk goes through can be the last.
uint32_t killAtCall(int, intptr_t, const char *, size_t *)
{
    if (--g_callsLeft == 0)
        raise(SIGKILL);
    return 0;
}

// The child: decrypts every visible file of folder, deleting each envelope
// once done if asked, until it is killed at file call number at.
int runBatch(const QString &folder, int threads, bool deleting, int at)
{
    g_callsLeft = at;
    nm_file_set_fault_fn(killAtCall);
    DecryptManager manager;
    manager.setDeleteEncryptedProvider([deleting] { return deleting; });
    manager.onChangeNumThreads(threads);
    QStringList paths;
    for (const QString &name : QDir(folder).entryList(QDir::Files))
        paths << folder + '/' + name;
    manager.addFiles(paths);
    return finishBatch(manager) ? 0 : 1;
}

} // namespace

// Kills a process at a random moment of a batch, with or without the
// deletion of envelopes, and looks at what is left: every visible file is a
// whole envelope or a whole plaintext, and every envelope survives as itself
// or as its whole plaintext. Leftover temporary files are hidden.
class TestKill : public QObject
{
    Q_OBJECT

private slots:
    // Rounds: NM_STRESS_ROUNDS / 10 (a round costs about ten of the other
    // stress rounds), at least 40. Each batch has envelopes without the
    // extension and two whose natural output names meet.
    void killAtRandom()
    {
        const int rounds = qMax(qEnvironmentVariableIntValue("NM_STRESS_ROUNDS") / 10, 40);
        QRandomGenerator random(20250107u);
        int killed = 0;
        for (int round = 0; round < rounds; ++round) {
            QTemporaryDir tmp;
            const int count = random.bounded(4, 12);
            QSet<QByteArray> whole;
            QList<QByteArray> plaintexts, envelopes;
            for (int i = 0; i < count; ++i) {
                const QString name = i < 2 ? QString(i ? "same.NIMBRA-ENV" : "same.nimbra-env")
                                           : QString(i % 3 ? "file%1.nimbra-env" : "plain%1.txt").arg(i);
                plaintexts << QByteArray::number(i) + ':' + QByteArray(random.bounded(1 << 20), char('a' + i));
                envelopes << readFile(envelope(tmp.filePath(name), plaintexts.last()));
                whole << plaintexts.last() << envelopes.last();
            }
            QProcess child;
            child.start(QCoreApplication::applicationFilePath(),
                        {"--batch", tmp.path(), QString::number(random.bounded(1, 9)),
                         QString::number(random.bounded(2)), QString::number(random.bounded(1, 10 * count))});
            QVERIFY(child.waitForFinished());
            killed += child.exitStatus() == QProcess::CrashExit;
            QSet<QByteArray> seen;
            for (const QString &name : QDir(tmp.path()).entryList(QDir::Files)) {
                const QByteArray content = readFile(tmp.filePath(name));
                QVERIFY2(whole.contains(content), qPrintable(QString("round %1: %2 is incomplete").arg(round).arg(name)));
                seen << content;
            }
            for (int i = 0; i < count; ++i)
                QVERIFY2(seen.contains(envelopes[i]) || seen.contains(plaintexts[i]), qPrintable(QString("round %1: file %2 lost").arg(round).arg(i)));
        }
        QVERIFY2(killed > rounds / 2, qPrintable(QString("%1 of %2 batches killed").arg(killed).arg(rounds)));
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 6 && qstrcmp(argv[1], "--batch") == 0)
        return runBatch(QString::fromLocal8Bit(argv[2]), atoi(argv[3]), atoi(argv[4]) != 0, atoi(argv[5]));
    TestKill test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_kill.moc"

#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

namespace {

// The child: decrypts every visible file of folder, deleting each envelope
// once done if asked, until it is killed or the batch ends.
int runBatch(const QString &folder, int threads, bool deleting)
{
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

// Kills a process in the middle of a batch, with or without the deletion of
// envelopes, at random moments (SIGKILL: no clean-up of any kind), and looks
// at what is left: every visible file is a
// whole envelope or a whole plaintext, and every envelope survives either as
// itself or as its whole plaintext. Leftover temporary files are hidden.
class TestKill : public QObject
{
    Q_OBJECT

    // Envelopes of distinct plaintexts, some without the extension and two
    // whose natural output names meet. Returns plaintext by envelope bytes.
    static QHash<QByteArray, QByteArray> makeBatch(const QString &folder, QRandomGenerator &random)
    {
        QHash<QByteArray, QByteArray> plainOf;
        const int count = random.bounded(4, 12);
        for (int i = 0; i < count; ++i) {
            const QString name = i == 0   ? QString("same.nimbra-env")
                                 : i == 1 ? QString("same.NIMBRA-ENV")
                                 : i % 3 == 0 ? QString("plain%1.txt").arg(i)
                                              : QString("file%1.nimbra-env").arg(i);
            const QByteArray plain = QByteArray::number(i) + ':'
                                     + QByteArray(random.bounded(1 << 22), char('a' + i));
            plainOf.insert(readFile(envelope(folder + '/' + name, plain)), plain);
        }
        return plainOf;
    }

    static QString check(const QString &folder, const QHash<QByteArray, QByteArray> &plainOf)
    {
        QSet<QByteArray> seen;
        const QSet<QByteArray> plains(plainOf.cbegin(), plainOf.cend());
        for (const QString &name : QDir(folder).entryList(QDir::Files)) {
            const QByteArray content = readFile(folder + '/' + name);
            if (!plainOf.contains(content) && !plains.contains(content))
                return "incomplete or foreign file " + name;
            seen << content;
        }
        for (auto it = plainOf.cbegin(); it != plainOf.cend(); ++it) {
            if (!seen.contains(it.key()) && !seen.contains(it.value()))
                return "lost: the envelope of " + QString::fromLatin1(it.value().left(4));
        }
        return QString();
    }

private slots:
    // Rounds: NM_STRESS_ROUNDS / 10, as a round costs about ten of the other
    // stress rounds; 20 when it is not set.
    void killAtRandom()
    {
        bool set = false;
        const int asked = qEnvironmentVariableIntValue("NM_STRESS_ROUNDS", &set);
        const int rounds = set ? qMax(1, asked / 10) : 20;
        QRandomGenerator random(20250107u);
        int killed = 0;
        for (int round = 0; round < rounds; ++round) {
            QTemporaryDir tmp;
            const QHash<QByteArray, QByteArray> plainOf = makeBatch(tmp.path(), random);
            QProcess child;
            child.start(QCoreApplication::applicationFilePath(),
                        {"--batch", tmp.path(), QString::number(random.bounded(1, 9)),
                         QString::number(random.bounded(2))});
            QVERIFY(child.waitForStarted());
            QThread::msleep(random.bounded(20, 300));
            killed += child.state() == QProcess::Running;
            child.kill();
            QVERIFY(child.waitForFinished());
            const QString problem = check(tmp.path(), plainOf);
            QVERIFY2(problem.isEmpty(), qPrintable(QString("round %1: %2").arg(round).arg(problem)));
        }
        qInfo("%d of %d batches still running when killed", killed, rounds);
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 5 && qstrcmp(argv[1], "--batch") == 0)
        return runBatch(QString::fromLocal8Bit(argv[2]), atoi(argv[3]), atoi(argv[4]) != 0);
    TestKill test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_kill.moc"

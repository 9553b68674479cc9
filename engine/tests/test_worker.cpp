#include <elf.h>

#include <QTemporaryDir>

#include "EngineTestSupport.h"
#include "FaultSupport.h"

using namespace engine_test;

namespace {

const char kSecret[] = "\x5e\xc7\x3e\x70\x9a\x11\xc4\x2b\x81\x6d\xf0\x3a\x17\xe2\x58\xbd";

// Leaves kSecret in a local of a frame about 8 KiB below its caller's, as a
// callee holding key material would.
__attribute__((noinline)) void leaveSecret(int depth)
{
    volatile char area[4096];
    if (depth > 0)
        leaveSecret(depth - 1);
    else
        for (size_t i = 0; i < sizeof area; ++i)
            area[i] = kSecret[i % 16];
    __asm__ __volatile__("" : : "r"(area) : "memory");
}

// Whether needle lies in the 60 KiB of stack below the caller's frame.
__attribute__((noinline, no_sanitize_address)) bool belowStack(const QByteArray &needle)
{
    const uintptr_t frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    const QByteArray dead(reinterpret_cast<const char *>(frame - 256 - 60 * 1024), 60 * 1024);
    return dead.contains(needle);
}

// DT_FLAGS / DT_FLAGS_1 ask for immediate binding and a RELRO segment exists.
bool fullRelro(const QString &path)
{
    QFile file(path);
    const QByteArray elf = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (elf.size() < int(sizeof(Elf64_Ehdr)) || !elf.startsWith(ELFMAG))
        return false;
    const auto *header = reinterpret_cast<const Elf64_Ehdr *>(elf.constData());
    const auto *segments = reinterpret_cast<const Elf64_Phdr *>(elf.constData() + header->e_phoff);
    bool relro = false, now = false;
    for (int i = 0; i < header->e_phnum; ++i) {
        relro = relro || segments[i].p_type == PT_GNU_RELRO;
        if (segments[i].p_type != PT_DYNAMIC)
            continue;
        const auto *entry = reinterpret_cast<const Elf64_Dyn *>(elf.constData() + segments[i].p_offset);
        for (; entry->d_tag != DT_NULL; ++entry)
            now = now || entry->d_tag == DT_BIND_NOW || (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_BIND_NOW))
                  || (entry->d_tag == DT_FLAGS_1 && (entry->d_un.d_val & DF_1_NOW));
    }
    return relro && now;
}

} // namespace

// Tasks, and one worker driven directly: every run is waited for, so the
// signals that the worker emitted on its own thread are complete when checked.
class TestWorker : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;
    Task::STATUS received = Task::Cleared;

    QString path(const QString &name) const { return dir.filePath(name); }

    // Runs source into output (a name in dir), cancelling at once if asked.
    CryptTask *run(VextDecryptWorker &worker, const QString &source, const QString &output,
                   bool cancel = false)
    {
        auto *task = new CryptTask(source, this);
        task->setOutputPath(path(output));
        task->setPassphrase(QString::fromLatin1(kPassphrase));
        worker.reset();
        worker.startTask(task);
        if (cancel)
            worker.cancel();
        return worker.wait(30000) ? task : nullptr;
    }

public slots: // not a test: the target of a queued call by name
    void receive(Task::STATUS status) { received = status; }

private slots:
    void statusText_data()
    {
        QTest::addColumn<quint32>("status");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("text");
        QTest::newRow("fresh") << 4u << QString() << "Waiting";
        QTest::newRow("finished") << 1u << QString() << "Finished -> /out/report.pdf";
        QTest::newRow("error bare") << 2u << QString() << "Error";
        QTest::newRow("error text") << 2u << "(Bad Code: 1)" << "Error (Bad Code: 1)";
        QTest::newRow("six") << 6u << QString() << "Unknown";
    }

    void statusText()
    {
        QFETCH(quint32, status);
        QFETCH(QString, error);
        QFETCH(QString, text);
        CryptTask task(QStringLiteral("/in/report.pdf.nimbra-env"), nullptr);
        task.setOutputPath(QStringLiteral("/out/report.pdf"));
        if (status != Task::Waiting) {
            task.setStatus(static_cast<Task::STATUS>(status));
            task.setErrorMessage(error);
            task.setProgress(0.5f);
        }
        // The window sees const tasks, and copies that travel in queued signals.
        const CryptTask copy = QVariant::fromValue(task).value<CryptTask>();
        for (const Task *view : {static_cast<const Task *>(&task), static_cast<const Task *>(&copy)}) {
            QCOMPARE(view->statusText(), text);
            QCOMPARE(quint32(view->status()), status);
            QCOMPARE(view->progress(), status == Task::Waiting ? 0.0f : 0.5f);
        }
        QCOMPARE(task.workerIndex(), -1);
    }

    // A copy keeps the flags, addedPath and workerIndex (status, progress and
    // message: above); a status travels by name; isSame is exact.
    void copyMetaTypesAndIsSame()
    {
        CryptTask task(QStringLiteral("/d/a.txt"), nullptr);
        task.setSourcePath(QStringLiteral("/d/a.txt.nimbra-env"));
        task.setWorkerIndex(3);
        task.setOutputSuffixed(true);
        task.setPlainInput(true);
        task.setSourceDeleted(true);
        CryptTask copy(task);
        QVERIFY(copy.addedPath() == "/d/a.txt" && copy.sourcePath() == task.sourcePath());
        QVERIFY(copy.workerIndex() == 3 && copy.passphrase().isEmpty());
        QVERIFY(copy.isOutputSuffixed() && copy.isPlainInput() && copy.isSourceDeleted());
        copy.setPassphrase(QStringLiteral("other"));
        QVERIFY(copy.isSame(&task) && !copy.isSame(nullptr)); // whatever the passphrase
        QVERIFY(!copy.isSame(new CryptTask(QStringLiteral("/d/A.txt.nimbra-env"), this)));
        QCOMPARE(QMetaType::type("CryptTask"), qMetaTypeId<CryptTask>());
        QVERIFY(QMetaObject::invokeMethod(this, "receive", Qt::QueuedConnection,
                                          Q_ARG(Task::STATUS, Task::Cancelled)));
        QTRY_COMPARE(received, Task::Cancelled);
    }

    void outcome_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("message"); // empty: Finished
        QTest::addColumn<QByteArray>("written");
        const QByteArray none = "<missing>";
        writeFile(path("corrupt.nimbra-env"), QByteArray(300, 'z'));
        QDir(dir.path()).mkdir(QStringLiteral("folder.nimbra-env"));
        QTest::newRow("plaintext") << envelope(path("ok.nimbra-env"), "hi") << "ok" << "" << QByteArray("hi");
        QTest::newRow("zero bytes") << envelope(path("0.nimbra-env"), "") << "0" << "" << QByteArray("");
        QTest::newRow("wrong passphrase") << envelope(path("pw.nimbra-env"), "x", "other") << "pw"
                                          << "(Passphrase doesn't match Code: 1)" << none;
        QTest::newRow("corrupt") << path("corrupt.nimbra-env") << "corrupt"
                                 << "(Input file is corrupted or not encrypted. Code: 2)" << none;
        QTest::newRow("directory") << path("folder.nimbra-env") << "folder"
                                   << "(Source is not a file. Code: -3)" << none;
        QTest::newRow("missing") << path("gone.nimbra-env") << "gone"
                                 << "(Source file does not exist. Code: -3)" << none;
        QTest::newRow("unwritable output") << path("ok.nimbra-env") << "no/dir"
                                           << "(Could not write to destination. Code: -1)" << none;
    }

    void outcome()
    {
        QFETCH(QString, source);
        QFETCH(QString, output);
        QFETCH(QString, message);
        QFETCH(QByteArray, written);
        VextDecryptWorker worker(5, nullptr);
        QString heard; // emitted on the worker thread, read after it ended
        connect(&worker, &VextDecryptWorker::started, [&] { heard += 's'; });
        connect(&worker, &VextDecryptWorker::completed, [&] { heard += 'c'; });
        connect(&worker, &VextDecryptWorker::failed, [&] { heard += 'f'; });
        const CryptTask *task = run(worker, source, output);
        QVERIFY(task);
        QCOMPARE(heard, message.isEmpty() ? "sc" : "sf");
        QCOMPARE(task->status(), message.isEmpty() ? Task::Finished : Task::Error);
        QCOMPARE(task->errorMessage(), message);
        QCOMPARE(task->workerIndex(), 5);
        QCOMPARE(task->progress(), message.isEmpty() ? 1.0f : 0.0f);
        QCOMPARE(readFile(task->outputPath()), written);
    }

    // The fraction is over every file that the worker ever opened; a cancel
    // keeps it, marks the task Cancelled and removes the partial output.
    void progressOverTheWorkersLifeAndCancel()
    {
        VextDecryptWorker worker(0, nullptr);
        worker.startTask(nullptr); // starts nothing
        QVERIFY(!worker.isRunning() && worker.resultText() == "(Invalid file Code: -3)");

        const QString first = envelope(path("first.nimbra-env"), QByteArray(5000, 'a'));
        const QString second = envelope(path("second.nimbra-env"), QByteArray(300, 'b'));
        QVERIFY(run(worker, first, "first"));
        QCOMPARE(run(worker, second, "second")->progress(), 1.0f);
        QCOMPARE(worker.fractionDone(), 5300.0f / float(QFileInfo(first).size() + QFileInfo(second).size()));

        QSignalSpy failed(&worker, &VextDecryptWorker::failed);
        const CryptTask *task = run(worker, sparseEnvelope(path("big.nimbra-env")), "big", true);
        QVERIFY(task->status() == Task::Cancelled && failed.count() == 1);
        QVERIFY(task->errorMessage().isEmpty() && !QFile::exists(path("big")));
        QVERIFY(task->progress() < 1.0f && task->progress() == worker.fractionDone());
    }

    // Symbols are bound at start, so the dynamic linker never saves a
    // worker's registers (key material among them) on its stack mid-run.
    void immediateBinding_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("this test") << QCoreApplication::applicationFilePath();
        const QString program = QCoreApplication::applicationDirPath() + "/nimbra-crypt";
        if (QFile::exists(program))
            QTest::newRow("the program") << program;
    }

    void immediateBinding()
    {
        QFETCH(QString, program);
        QVERIFY(fullRelro(program));
    }

    // Nothing that a run's callees left on the worker's stack survives it:
    // neither a secret planted deep in a write nor the file key.
    void stackWipedAfterRun()
    {
        envelope_writer::EnvelopeOptions options;
        options.fileKey = "\x3c\x91\x0e\xa7\x55\xd2\x48\x1f\xb6\x03\xe9\x7a\x2d\xc4\x60\x8b";
        const QString source = path("key.nimbra-env");
        QVERIFY(envelope_writer::writeEnvelope(QFile::encodeName(source).toStdString(),
                                               std::string(3000, 'k'), kPassphrase, options));
        VextDecryptWorker worker(0, nullptr);
        bool secretLeft = true, keyLeft = true;
        connect(&worker, &VextDecryptWorker::completed, this, [&] {
            secretLeft = belowStack(QByteArray(kSecret, 16));
            keyLeft = belowStack(QByteArray::fromStdString(options.fileKey));
        }, Qt::DirectConnection); // on the worker's thread, right after its run
        ScopedFault fault({NM_FILE_OP_WRITE, 0, LLONG_MAX, ".nmpart", [] { leaveSecret(1); }});
        QVERIFY(run(worker, source, "key"));
        QVERIFY(!secretLeft);
        QVERIFY(!keyLeft);
    }
};

QTEST_GUILESS_MAIN(TestWorker)
#include "test_worker.moc"

#include <elf.h>
#include <link.h>

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
    const char *frame = static_cast<const char *>(__builtin_frame_address(0));
    return QByteArray(frame - 256 - 60 * 1024, 60 * 1024).contains(needle);
}

// Whether the first object, this executable (linked with the program's
// options), has a RELRO segment and asks for immediate binding.
int fullRelro(dl_phdr_info *info, size_t, void *result)
{
    int found = 0;
    for (const ElfW(Phdr) *h = info->dlpi_phdr; h < info->dlpi_phdr + info->dlpi_phnum; ++h) {
        found |= h->p_type == PT_GNU_RELRO;
        for (auto *d = reinterpret_cast<const ElfW(Dyn) *>(info->dlpi_addr + h->p_vaddr);
             h->p_type == PT_DYNAMIC && d->d_tag != DT_NULL; ++d)
            found |= (d->d_tag == DT_FLAGS_1 && (d->d_un.d_val & DF_1_NOW)) ? 2 : 0;
    }
    *static_cast<bool *>(result) = found == 3;
    return 1;
}

} // namespace

// Tasks, and one worker driven directly: every run is waited for, so the
// signals that the worker emitted on its own thread are complete when checked.
class TestWorker : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

    QString path(const QString &name) const { return dir.filePath(name); }

    // Runs source into output (a name in dir), cancelling at once if asked.
    CryptTask *run(VextDecryptWorker &worker, const QString &source, const QString &output, bool cancel = false)
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

private slots:
    void statusText_data()
    {
        QTest::addColumn<quint32>("status");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("text");
        const char *plain[] = {"Decrypting", nullptr, "Error", "Cancelled", "Waiting", "Cleared", "Unknown"};
        for (quint32 status : {0u, 2u, 3u, 4u, 5u, 6u})
            QTest::newRow(plain[status]) << status << QString() << plain[status];
        QTest::newRow("finished") << 1u << QString() << "Finished -> /out/report.pdf";
        QTest::newRow("error text") << 2u << "(Bad Code: 1)" << "Error (Bad Code: 1)";
    }

    // As the task shows itself, and a copy as it travels in a queued signal,
    // which keeps every field.
    void statusText()
    {
        QFETCH(quint32, status);
        QFETCH(QString, error);
        QFETCH(QString, text);
        CryptTask task(QStringLiteral("/in/a.txt"), nullptr);
        QVERIFY(task.status() == Task::Waiting && task.progress() == 0.0f && task.workerIndex() == -1);
        task.setSourcePath(QStringLiteral("/in/a.txt.nimbra-env"));
        task.setOutputPath(QStringLiteral("/out/report.pdf"));
        task.setWorkerIndex(3);
        task.setOutputSuffixed(true);
        task.setPlainInput(true);
        task.setSourceDeleted(true);
        task.setStatus(static_cast<Task::STATUS>(status));
        task.setErrorMessage(error);
        task.setProgress(0.5f);
        const CryptTask copy = QVariant::fromValue(task).value<CryptTask>();
        for (const CryptTask *view : std::initializer_list<const CryptTask *>{&task, &copy}) {
            QCOMPARE(static_cast<const Task *>(view)->statusText(), text);
            QVERIFY(quint32(view->status()) == status && view->progress() == 0.5f && view->workerIndex() == 3);
            QVERIFY(view->addedPath() == "/in/a.txt" && view->sourcePath() == "/in/a.txt.nimbra-env");
            QVERIFY(view->isOutputSuffixed() && view->isPlainInput() && view->isSourceDeleted());
        }
    }

    // isSame is exact, whatever the passphrase; both types travel by name.
    void isSameAndMetaTypes()
    {
        CryptTask task(QStringLiteral("/d/a.nimbra-env"), nullptr), same(task.sourcePath(), nullptr);
        same.setPassphrase(QStringLiteral("other"));
        QVERIFY(same.isSame(&task) && !same.isSame(nullptr));
        QVERIFY(!same.isSame(new CryptTask(QStringLiteral("/d/A.nimbra-env"), this)));
        QCOMPARE(QMetaType::type("CryptTask"), qMetaTypeId<CryptTask>());
        QCOMPARE(QMetaType::type("Task::STATUS"), qMetaTypeId<Task::STATUS>());
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

    // Signals in order, the task Decrypting from the start of the run on.
    void outcome()
    {
        QFETCH(QString, source);
        QFETCH(QString, output);
        QFETCH(QString, message);
        QFETCH(QByteArray, written);
        VextDecryptWorker worker(5, nullptr);
        QString heard; // emitted on the worker thread, read after it ended
        connect(&worker, &VextDecryptWorker::started, [&] { heard += worker.task()->statusText().left(1); });
        connect(&worker, &VextDecryptWorker::completed, [&] { heard += 'c'; });
        connect(&worker, &VextDecryptWorker::failed, [&] { heard += 'f'; });
        const CryptTask *task = run(worker, source, output);
        QVERIFY(task);
        QCOMPARE(heard, message.isEmpty() ? "Dc" : "Df");
        QCOMPARE(task->status(), message.isEmpty() ? Task::Finished : Task::Error);
        QCOMPARE(task->errorMessage(), message);
        QCOMPARE(task->workerIndex(), 5);
        QCOMPARE(task->progress(), message.isEmpty() ? 1.0f : 0.0f);
        QCOMPARE(readFile(task->outputPath()), written);
    }

    // The fraction is over every file that the worker ever opened; a cancel,
    // seen at the next piece, keeps it, marks the task Cancelled and removes
    // the partial output.
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
        QVERIFY(task->status() == Task::Cancelled && failed.count() == 1 && task->errorMessage().isEmpty());
        QVERIFY(!QFile::exists(path("big")) && !QFile::exists(path(".big.nmpart")));
        QVERIFY(task->progress() < 0.5f && task->progress() == worker.fractionDone());
    }

    // Symbols are bound at start, so the dynamic linker never saves a
    // worker's registers (key material among them) on its stack mid-run.
    void immediateBinding()
    {
        bool full = false;
        dl_iterate_phdr(fullRelro, &full);
        QVERIFY(full);
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
        bool left = true;
        connect(&worker, &VextDecryptWorker::completed, this, [&] {
            left = belowStack(QByteArray(kSecret, 16)) || belowStack(QByteArray::fromStdString(options.fileKey));
        }, Qt::DirectConnection); // on the worker's thread, right after its run
        ScopedFault fault({NM_FILE_OP_WRITE, 0, LLONG_MAX, ".nmpart", [] { leaveSecret(1); }});
        QVERIFY(run(worker, source, "key"));
        QVERIFY(!left);
    }
};

QTEST_GUILESS_MAIN(TestWorker)
#include "test_worker.moc"

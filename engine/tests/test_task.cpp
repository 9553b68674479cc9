#include <QTest>

#include <engine/CryptTask.h>

class TestTask : public QObject
{
    Q_OBJECT
private slots:
    void statusText_data()
    {
        QTest::addColumn<quint32>("status");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("text");
        QTest::newRow("finished") << 1u << QString() << "Finished -> /out/report.pdf";
        QTest::newRow("error bare") << 2u << QString() << "Error";
        QTest::newRow("error text") << 2u << "(Bad Code: 1)" << "Error (Bad Code: 1)";
        QTest::newRow("waiting") << 4u << QString() << "Waiting";
        QTest::newRow("six") << 6u << QString() << "Unknown";
        QTest::newRow("huge") << 0xFFFFFFFFu << QString() << "Unknown";
    }

    void statusText()
    {
        QFETCH(quint32, status);
        QFETCH(QString, error);
        QFETCH(QString, text);
        CryptTask task(QStringLiteral("/in/report.pdf.nimbra-env"), nullptr);
        task.setOutputPath(QStringLiteral("/out/report.pdf"));
        task.setStatus(static_cast<Task::STATUS>(status));
        task.setErrorMessage(error);
        QCOMPARE(task.statusText(), text);
    }

    void freshTaskWaitsUntouched()
    {
        CryptTask task(QStringLiteral("a.nimbra-env"), nullptr);
        QCOMPARE(task.status(), Task::Waiting);
        QCOMPARE(task.progress(), 0.0f);
        QCOMPARE(task.workerIndex(), -1);
        QCOMPARE(task.addedPath(), task.sourcePath());
    }

    void copyKeepsEveryField()
    {
        CryptTask task(QStringLiteral("/d/a.txt"), nullptr);
        task.setSourcePath(QStringLiteral("/d/a.txt.nimbra-env"));
        task.setOutputPath(QStringLiteral("/d/a.txt"));
        task.setPassphrase(QStringLiteral("pw"));
        task.setStatus(Task::Error);
        task.setErrorMessage(QStringLiteral("boom"));
        task.setProgress(0.25f);
        task.setWorkerIndex(3);
        task.setOutputSuffixed(true);
        task.setPlainInput(true);
        task.setSourceDeleted(true);

        const QVariant value = QVariant::fromValue(task);
        CryptTask copy = value.value<CryptTask>();
        QCOMPARE(QMetaType::type("CryptTask"), qMetaTypeId<CryptTask>());
        QCOMPARE(copy.addedPath(), QStringLiteral("/d/a.txt"));
        QCOMPARE(copy.sourcePath(), task.sourcePath());
        QCOMPARE(copy.outputPath(), task.outputPath());
        QCOMPARE(copy.passphrase(), task.passphrase());
        QCOMPARE(copy.status(), Task::Error);
        QCOMPARE(copy.errorMessage(), QStringLiteral("boom"));
        QCOMPARE(copy.progress(), 0.25f);
        QCOMPARE(copy.workerIndex(), 3);
        QVERIFY(copy.isOutputSuffixed() && copy.isPlainInput() && copy.isSourceDeleted());
    }

    void isSameComparesSourceExactly()
    {
        CryptTask a(QStringLiteral("/d/File.nimbra-env"), nullptr);
        CryptTask sameFile(QStringLiteral("/d/File.nimbra-env"), nullptr);
        CryptTask otherCase(QStringLiteral("/d/file.nimbra-env"), nullptr);
        sameFile.setPassphrase(QStringLiteral("different"));
        QVERIFY(a.isSame(&sameFile));
        QVERIFY(!a.isSame(&otherCase));
        QVERIFY(!a.isSame(nullptr));
    }
};

QTEST_GUILESS_MAIN(TestTask)
#include "test_task.moc"

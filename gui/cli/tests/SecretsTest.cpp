// "--decrypt" leaves no copy of the passphrase it read in memory once its
// batch has ended, whether the files opened or not. The command runs in this
// process: runDecryptCommand is all of "--decrypt" from the arguments to the
// exit code, and the program's start-up adds only the non-dumpable flag,
// which would keep a process from reading its own memory.
#include <DecryptCommand.h>
#include <engine/DecryptManager.h>
#include <envelope_writer/EnvelopeWriter.h>
#include <memory_scan/MemoryScan.h>

#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>

using memory_scan::Secret;

class SecretsTest : public QObject
{
    Q_OBJECT

private slots:
    void decryptLeavesNoCopy_data()
    {
        QTest::addColumn<bool>("opens");
        QTest::newRow("finished") << true;
        QTest::newRow("failed: wrong passphrase") << false;
    }

    void decryptLeavesNoCopy()
    {
        QFETCH(bool, opens);
        QTemporaryDir dir;
        const Secret secret;
        const std::string folder = QFile::encodeName(dir.path()).toStdString();
        QVERIFY(secret.revealInChild([&](const char *passphrase) {
            FILE *file = std::fopen((folder + "/passphrase").c_str(), "w");
            return file && std::fprintf(file, "%s\n", passphrase) > 0 && std::fclose(file) == 0
                   && envelope_writer::writeEnvelope(folder + "/doc.txt.nimbra-env", "plain",
                                                     opens ? passphrase : "another");
        }));
        Secret::Copies running;
        connect(DecryptManager::instance(), &DecryptManager::started, this, [&] { running = secret.find(); });
        const int code = cli::runDecryptCommand({"nimbra-crypt", "--decrypt", "--quiet", "--passphrase-file",
                                                 dir.filePath("passphrase"), dir.path()});
        QCOMPARE(code, opens ? 0 : -2);
        QVERIFY2(running.utf8 > 0 && running.utf16 > 0, "the search does not see the running batch's passphrase");
        QVERIFY(secret.find().none());
    }
};

QTEST_GUILESS_MAIN(SecretsTest)
#include "SecretsTest.moc"

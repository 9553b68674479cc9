// Envelope recognition, the folder walk, list files, load summaries and the
// windowless test modes, on real folder trees.
#include <memory>

#include <QTemporaryDir>
#include <QTest>

#include <engine/FileLoading.h>

#include "ListOpsTestSupport.h"

using namespace listops_test;

class TestLoading : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void recognition_data();
    void recognition();
    void walkOrderAndExclusions();
    void cancelDiscardsFolder();
    void summary_data();
    void summary();
    void listFile();
    void testModes_data();
    void testModes();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    QStringList scanInput(const QString &kind);
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestLoading::init()
{
    m_dir.reset(new QTemporaryDir(QDir::tempPath() + QStringLiteral("/listops-XXXXXX")));
    QVERIFY(m_dir->isValid());
}

// By descriptors: a tree beyond the path length limit defeats removal by path.
void TestLoading::cleanup()
{
    removeTree(m_dir->path());
    m_dir.reset();
}

void TestLoading::recognition_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("envelope");
    QTest::addColumn<bool>("expected");
    QTest::newRow("suffix, real") << "a.nimbra-env" << true << true;
    QTest::newRow("suffix alone, never opened") << "b.nimbra-env" << false << true;
    QTest::newRow("upper-case suffix, envelope content") << "c.NIMBRA-ENV" << true << true;
    QTest::newRow("upper-case suffix, plain content") << "d.NIMBRA-ENV" << false << false;
    QTest::newRow("no suffix, envelope content") << "e.txt" << true << true;
    QTest::newRow("no suffix, plain content") << "f.txt" << false << false;
    QTest::newRow("missing") << "" << false << false;
}

void TestLoading::recognition()
{
    QFETCH(QString, name);
    QFETCH(bool, envelope);
    QFETCH(bool, expected);
    const QString file = path(name.isEmpty() ? QStringLiteral("missing.nimbra-env") : name);
    if (!name.isEmpty())
        envelope ? listops_test::envelope(file) : plainFile(file);
    QCOMPARE(FileLoading::isEnvelope(file), expected);
}

// Files of a folder come before those of its sub-folders, each sub-folder
// whole before the next; links, hidden entries and pipes never appear.
void TestLoading::walkOrderAndExclusions()
{
    const QString root = path(QStringLiteral("root"));
    plainFile(root + "/a");
    plainFile(root + "/s1/b");
    plainFile(root + "/s1/t/c");
    plainFile(root + "/s2/d");
    plainFile(root + "/.hidden");
    plainFile(root + "/.hid/e");
    fifo(root + "/pipe");
    QFile::link(root + "/a", root + "/file-link");
    QFile::link(root + "/s1", root + "/folder-link");
    QFile::link(root, root + "/s2/loop");

    const QStringList found =
        FileLoading::walkFolder(root, QStringLiteral("*"), true, false, [] { return false; });
    const QStringList s1First{root + "/a", root + "/s1/b", root + "/s1/t/c", root + "/s2/d"};
    const QStringList s2First{root + "/a", root + "/s2/d", root + "/s1/b", root + "/s1/t/c"};
    QVERIFY2(found == s1First || found == s2First, qPrintable(found.join(", ")));

    const QStringList flat =
        FileLoading::walkFolder(root, QStringLiteral("*"), false, false, [] { return false; });
    QCOMPARE(flat, QStringList{root + "/a"});
}

void TestLoading::cancelDiscardsFolder()
{
    const QString root = path(QStringLiteral("many"));
    for (int i = 0; i < 5; ++i)
        plainFile(root + QStringLiteral("/f%1").arg(i));
    int asked = 0;
    const QStringList found = FileLoading::walkFolder(root, QStringLiteral("*"), true, false,
                                                      [&] { return ++asked > 3; });
    QVERIFY(found.isEmpty());
    QCOMPARE(asked, 4);
}

void TestLoading::summary_data()
{
    QTest::addColumn<int>("loaded");
    QTest::addColumn<int>("collected");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << 0 << 0 << "0 files loaded.";
    QTest::newRow("one") << 1 << 1 << "1 file loaded.";
    QTest::newRow("many") << 3 << 3 << "3 files loaded.";
    QTest::newRow("one duplicate") << 0 << 1 << "0 files loaded. 1 duplicate skipped.";
    QTest::newRow("one of two") << 1 << 2 << "1 file loaded. 1 duplicate skipped.";
    QTest::newRow("many duplicates") << 2 << 5 << "2 files loaded. 3 duplicates skipped.";
}

void TestLoading::summary()
{
    QFETCH(int, loaded);
    QFETCH(int, collected);
    QFETCH(QString, text);
    QCOMPARE(FileLoading::loadSummary(loaded, collected), text);
}

void TestLoading::listFile()
{
    const QString list = plainFile(path("list.txt"), "  /a/b  \r\n\n/x/\xc3\xa9t\xc3\xa9\n\tlast");
    QStringList entries;
    QString why;
    QVERIFY(FileLoading::readListFile(list, &entries, &why));
    QCOMPARE(entries, (QStringList{"/a/b", "", QString::fromUtf8("/x/\xc3\xa9t\xc3\xa9"), "last"}));
}

// The paths a test-mode row scans, built on disk.
QStringList TestLoading::scanInput(const QString &kind)
{
    const QString loop = path(QStringLiteral("loop"));
    QDir().mkpath(loop + "/sub");
    QFile::link(QStringLiteral("."), loop + "/self");
    QFile::link(loop, loop + "/sub/up");
    QFile::link(path("cycle-b"), path("cycle-a"));
    QFile::link(path("cycle-a"), path("cycle-b"));
    if (kind == "envelope below links")
        envelope(loop + "/sub/found.dat");
    if (kind == "hidden envelope" && QDir().mkpath(loop + "/.secret"))
        envelope(loop + "/.secret/found.nimbra-env");
    if (kind == "beyond path limit")
        return {chainBeyondPathLimit(m_dir->path())};
    if (kind == "pipe")
        return {fifo(path("pipe.nimbra-env"))};
    if (kind == "device")
        return {QStringLiteral("/dev/zero")};
    if (kind == "missing")
        return {path("none.nimbra-env"), QString()};
    if (kind == "second path")
        return {path("none"), envelope(path("second.nimbra-env"))};
    return {path("cycle-a"), loop + "/self/self/sub/up", loop};
}

void TestLoading::testModes_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("expected");
    for (const char *kind : {"links only", "pipe", "device", "missing", "beyond path limit",
                             "hidden envelope"})
        QTest::newRow(kind) << kind << false;
    QTest::newRow("envelope below links") << "envelope below links" << true;
    QTest::newRow("second path") << "second path" << true;
}

// Both modes answer at once on odd paths: no pipe is opened, no link loop
// followed, no device read.
void TestLoading::testModes()
{
    QFETCH(QString, kind);
    QFETCH(bool, expected);
    const QStringList paths = scanInput(kind);
    QCOMPARE(FileLoading::scanPathsForEnvelopes(paths), expected);

    const QString list = plainFile(path("list.txt"), "\n" + paths.join("\r\n\n").toUtf8());
    QCOMPARE(FileLoading::scanListFileForEnvelopes(list), expected);
    QVERIFY(!FileLoading::scanListFileForEnvelopes(fifo(path("pipe-list"))));
    QVERIFY(!FileLoading::scanListFileForEnvelopes(path("absent-list")));
    QVERIFY(!FileLoading::scanListFileForEnvelopes(QStringLiteral("/dev/zero")));
    QVERIFY(!FileLoading::scanPathsForEnvelopes({}));
}

QTEST_GUILESS_MAIN(TestLoading)
#include "test_loading.moc"

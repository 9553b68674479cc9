#include <nmplatform/nmdir.h>
#include <nmplatform/nmstatus.h>

#include <QtTest>

#include <errno.h>

class TestNmDir : public QObject
{
    Q_OBJECT
private slots:
    void listing_data();
    void listing();
    void openFailures_data();
    void openFailures();
};

void TestNmDir::listing_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::newRow("empty") << QStringList();
    QTest::newRow("one") << QStringList{"only"};
    QTest::newRow("several and hidden") << QStringList{".hidden", "a", "b b", "\xc3\xa9t\xc3\xa9"};
}

void TestNmDir::listing()
{
    QFETCH(QStringList, files);
    QTemporaryDir tmp;
    for (const QString &name : files) {
        QFile f(tmp.filePath(name));
        QVERIFY(f.open(QIODevice::WriteOnly));
    }
    nm_dir_t dir;
    QCOMPARE(nm_dir_open(tmp.path().toUtf8().constData(), &dir), 0u);
    QCOMPARE(dir.state, uint32_t(files.isEmpty() ? NM_DIR_EMPTY : NM_DIR_HELD));
    auto *entry = new nm_dir_entry_t;
    QStringList seen;
    uint32_t rc;
    while ((rc = nm_dir_read(&dir, entry)) == 0)
        seen << QString::fromUtf8(entry->name);
    delete entry;
    QCOMPARE(rc, uint32_t(NM_E_END_OF_DIRECTORY));
    seen.sort();
    files.sort();
    QCOMPARE(seen, files);
    QCOMPARE(nm_dir_close(&dir), 0u);
    QCOMPARE(nm_dir_close(&dir), 22u);
}

void TestNmDir::openFailures_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<uint>("result");
    QTest::newRow("missing") << QByteArray("/nonexistent/dir") << uint(ENOENT);
    QTest::newRow("a file") << QByteArray("/dev/null") << uint(ENOTDIR);
    QTest::newRow("longest reaches the system") << QByteArray(8189, 'a') << uint(ENAMETOOLONG);
    QTest::newRow("too long") << QByteArray(8190, 'a') << 122u;
}

void TestNmDir::openFailures()
{
    QFETCH(QByteArray, path);
    QFETCH(uint, result);
    nm_dir_t dir;
    QCOMPARE(nm_dir_open(path.constData(), &dir), result);
    nm_dir_entry_t *entry = new nm_dir_entry_t;
    QVERIFY(nm_dir_read(&dir, entry) != 0);
    delete entry;
    QCOMPARE(nm_dir_close(&dir), 22u);
}

QTEST_APPLESS_MAIN(TestNmDir)
#include "test_nmdir.moc"

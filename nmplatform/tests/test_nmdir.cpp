#include <nmplatform/nmdir.h>
#include <nmplatform/nmstatus.h>

#include <QtTest>

#include <errno.h>

class TestNmDir : public QObject
{
    Q_OBJECT
private slots:
    void listing_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::newRow("empty") << QStringList();
        QTest::newRow("several and hidden") << QStringList{".hidden", "a", "b b", "\xc3\xa9t\xc3\xa9"};
    }

    void listing()
    {
        QFETCH(QStringList, files);
        QTemporaryDir tmp;
        for (const QString &name : files)
            QVERIFY(QFile(tmp.filePath(name)).open(QIODevice::WriteOnly));
        nm_dir_t dir;
        QCOMPARE(nm_dir_open(tmp.path().toUtf8().constData(), &dir), 0u);
        QCOMPARE(dir.state, uint32_t(files.isEmpty() ? NM_DIR_EMPTY : NM_DIR_HELD));
        QStringList seen;
        uint32_t rc;
        while ((rc = nm_dir_read(&dir, &m_entry)) == 0)
            seen << QString::fromUtf8(m_entry.name);
        QCOMPARE(rc, uint32_t(NM_E_END_OF_DIRECTORY));
        seen.sort();
        files.sort();
        QCOMPARE(seen, files);
        QCOMPARE(nm_dir_close(&dir), 0u);
        QCOMPARE(nm_dir_close(&dir), 22u);
    }

    // A failed open leaves a closed cursor.
    void openFailures()
    {
        const std::pair<QByteArray, uint> rows[] = {{"/nonexistent/dir", ENOENT}, {"/dev/null", ENOTDIR},
                                                    {QByteArray(8189, 'a'), ENAMETOOLONG}, {QByteArray(8190, 'a'), 122}};
        for (const auto &[path, result] : rows) {
            nm_dir_t dir;
            QCOMPARE(nm_dir_open(path.constData(), &dir), result);
            QVERIFY(nm_dir_read(&dir, &m_entry) != 0);
            QCOMPARE(nm_dir_close(&dir), 22u);
        }
    }

private:
    nm_dir_entry_t m_entry;
};

QTEST_APPLESS_MAIN(TestNmDir)
#include "test_nmdir.moc"

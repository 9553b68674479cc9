#include <nmplatform/nmplace.h>

#include <QtTest>

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The bytes of the regular file at path (UTF-8), "<missing>" when none.
QByteArray contentOf(const QByteArray &path)
{
    struct stat st;
    QFile f(QString::fromUtf8(path));
    if (stat(path.constData(), &st) != 0 || !S_ISREG(st.st_mode) || !f.open(QIODevice::ReadOnly))
        return "<missing>";
    return f.readAll();
}

} // namespace

class TestNmPlace : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QByteArray path(const char *name) const { return m_dir.filePath(name).toUtf8(); }

    // Puts an entry of the given kind at name; returns how to recognise it.
    QByteArray occupy(const char *name, const QByteArray &kind)
    {
        const QByteArray p = path(name), target = path("target");
        unlink(p.constData());
        rmdir(p.constData());
        QFile(QString::fromUtf8(target)).remove();
        if (kind == "file" || kind == "link") {
            QFile f(QString::fromUtf8(kind == "file" ? p : target));
            f.open(QIODevice::WriteOnly);
            f.write("mine");
        }
        const bool made = ((kind != "link" && kind != "dangling link")
                           || symlink(target.constData(), p.constData()) == 0)
                          && (kind != "fifo" || mkfifo(p.constData(), 0600) == 0)
                          && (kind != "folder" || mkdir(p.constData(), 0700) == 0);
        if (!made)
            qFatal("cannot make %s", p.constData());
        return state(name);
    }

    QByteArray state(const char *name) const
    {
        struct stat st;
        if (lstat(path(name).constData(), &st) != 0)
            return "none";
        return QByteArray::number(st.st_mode & S_IFMT, 8) + ' ' + contentOf(path(name)) + ' '
               + contentOf(path("target"));
    }

private slots:
    void takenNames_data()
    {
        QTest::addColumn<QByteArray>("kind");
        for (const char *kind : {"file", "link", "dangling link", "fifo", "folder"})
            QTest::newRow(kind) << QByteArray(kind);
    }

    // A taken name, whatever holds it, is neither created, written through
    // nor replaced: 17 and everything as it was.
    void takenNames()
    {
        QFETCH(QByteArray, kind);
        const QByteArray before = occupy("taken", kind);
        nm_file_t f;
        QCOMPARE(nm_file_create_new(path("taken").constData(), 0600, &f), uint(EEXIST));
        QVERIFY(!nm_file_is_open(&f));
        QCOMPARE(nm_file_create_new(path("new").constData(), 0600, &f), 0u);
        size_t n = 0;
        QCOMPARE(nm_file_write(&f, "plain", 5, &n), 0u);
        QCOMPARE(nm_file_close(&f), 0u);
        QCOMPARE(nm_file_place(path("new").constData(), path("taken").constData()), uint(EEXIST));
        QCOMPARE(state("taken"), before);
        QCOMPARE(contentOf(path("new")), QByteArray("plain"));
        QCOMPARE(nm_file_place(path("new").constData(), path("free").constData()), 0u);
        QCOMPARE(contentOf(path("free")), QByteArray("plain"));
        QVERIFY(!QFile::exists(m_dir.filePath("new")));
        QFile::remove(m_dir.filePath("free"));
    }

    // Permission bits as asked, narrowed by the umask; the identity follows
    // the file across a rename and tells a rewrite apart.
    void modeAndIdentity()
    {
        const mode_t old = umask(022);
        nm_file_t f;
        QCOMPARE(nm_file_create_new(path("m").constData(), 0666, &f), 0u);
        umask(old);
        nm_file_identity_t opened, named;
        QCOMPARE(nm_file_identify(&f, &opened), 0u);
        QCOMPARE(opened.mode, 0644u);
        QCOMPARE(opened.type, uint32_t(NM_FILE_TYPE_REGULAR));
        QCOMPARE(nm_file_sync_data(&f), 0u);
        QCOMPARE(nm_file_close(&f), 0u);
        QCOMPARE(nm_file_place(path("m").constData(), path("moved").constData()), 0u);
        QCOMPARE(nm_dir_sync(m_dir.path().toUtf8().constData()), 0u);
        QCOMPARE(nm_file_identify_path(path("moved").constData(), 0, &named), 0u);
        QVERIFY(nm_file_identity_same(&opened, &named));
        QFile moved(m_dir.filePath("moved"));
        QVERIFY(moved.open(QIODevice::Append) && moved.write("x") == 1);
        moved.close();
        QCOMPARE(nm_file_identify_path(path("moved").constData(), 0, &named), 0u);
        QVERIFY(!nm_file_identity_same(&opened, &named));
        QCOMPARE(nm_file_identify_path(path("absent").constData(), 1, &named), uint(ENOENT));
        occupy("l", "link");
        QCOMPARE(nm_file_identify_path(path("l").constData(), 0, &named), 0u);
        QCOMPARE(named.type, uint32_t(NM_FILE_TYPE_OTHER)); // the link itself
        QCOMPARE(nm_file_identify_path(path("l").constData(), 1, &named), 0u);
        QCOMPARE(named.size, uint64_t(4)); // the file it leads to
    }
};

QTEST_APPLESS_MAIN(TestNmPlace)
#include "test_nmplace.moc"

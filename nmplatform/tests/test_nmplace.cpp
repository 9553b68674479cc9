#include <nmplatform/nmplace.h>

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// What reached the system's sync calls, in order: "fdatasync PATH", "fsync PATH".
QStringList g_syncs;

int recordSync(const char *call, long number, int fd)
{
    char target[4096];
    const ssize_t n = readlink(("/proc/self/fd/" + QByteArray::number(fd)).constData(), target, sizeof target);
    g_syncs << QLatin1String(call) + ' ' + QString::fromUtf8(target, int(qMax<ssize_t>(n, 0)));
    return int(syscall(number, fd));
}

} // namespace

// The platform layer's syncs land here instead of in the C library.
extern "C" int fdatasync(int fd) { return recordSync("fdatasync", SYS_fdatasync, fd); }
extern "C" int fsync(int fd) { return recordSync("fsync", SYS_fsync, fd); }

// Names taken by files of every kind, and what the engine makes of each, are
// the engine's placement tests; here the calls themselves.
class TestNmPlace : public QObject
{
    Q_OBJECT

private slots:
    // A file is created only where nothing is, a dangling link included, with
    // the bits asked for; its data reach the disk by fdatasync, its folder's
    // names by fsync of the folder; it takes a name only if nothing has it.
    // Its identity is what the system says of it, to the nanosecond, follows
    // it across a rename, and a change of its device, inode, size or time
    // alone makes it another. A link is itself, or with follow the file it
    // leads to.
    void lifeOfAFile()
    {
        umask(022);
        QTemporaryDir tmp;
        const QString dir = QFileInfo(tmp.path()).canonicalFilePath();
        const QByteArray f = QFile::encodeName(dir + "/f"), g = QFile::encodeName(dir + "/g"), l = QFile::encodeName(dir + "/l");
        const struct timespec times[2] = {{0, UTIME_OMIT}, {1000000000, 5}};
        nm_file_t file, again;
        nm_file_identity_t opened, named, link;
        struct stat st;
        size_t n = 0;
        QCOMPARE(symlink(g.constData(), l.constData()), 0); // leads nowhere yet
        QCOMPARE(nm_file_create_new(l.constData(), 0600, &file), uint(EEXIST));
        QVERIFY(nm_file_create_new(f.constData(), 0640, &file) == 0 && nm_file_write(&file, "plain", 5, &n) == 0);
        g_syncs.clear();
        QVERIFY(nm_file_sync_data(&file) == 0 && nm_dir_sync(QFile::encodeName(dir).constData()) == 0);
        QCOMPARE(g_syncs, QStringList({"fdatasync " + dir + "/f", "fsync " + dir}));
        QVERIFY(futimens(int(file.handle), times) == 0 && fstat(int(file.handle), &st) == 0);
        QVERIFY(nm_file_identify(&file, &opened) == 0 && nm_file_close(&file) == 0);
        QCOMPARE(std::make_tuple(opened.device, opened.inode, opened.size, opened.mtime_ns, opened.mode),
                 std::make_tuple(uint64_t(st.st_dev), uint64_t(st.st_ino), uint64_t(5), int64_t(1000000000000000005), 0640u));
        QCOMPARE(nm_file_place(f.constData(), l.constData()), uint(EEXIST));
        QCOMPARE(nm_file_place(f.constData(), g.constData()), 0u);
        QCOMPARE(nm_file_create_new(g.constData(), 0600, &again), uint(EEXIST));
        QVERIFY(nm_file_identify_path(g.constData(), 0, &named) == 0 && nm_file_identity_same(&opened, &named));
        QVERIFY(nm_file_identify_path(l.constData(), 0, &link) == 0 && link.type == NM_FILE_TYPE_OTHER);
        QVERIFY(nm_file_identify_path(l.constData(), 1, &link) == 0 && nm_file_identity_same(&opened, &link));
        QVERIFY(link.type == NM_FILE_TYPE_REGULAR && !QFile::exists(QFile::decodeName(f)));
        for (uint64_t nm_file_identity_t::*field : {&nm_file_identity_t::device, &nm_file_identity_t::inode, &nm_file_identity_t::size}) {
            nm_file_identity_t other = named;
            ++(other.*field);
            QVERIFY(!nm_file_identity_same(&opened, &other));
        }
        ++named.mtime_ns;
        QVERIFY(!nm_file_identity_same(&opened, &named));
    }
};

QTEST_APPLESS_MAIN(TestNmPlace)
#include "test_nmplace.moc"

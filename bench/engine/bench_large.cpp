// One large envelope decrypted end to end by a worker (file to file, page
// cache warm), beside `openssl enc -d -aes-128-ctr` and a 64 KiB `dd` copy
// of a file of the same size. Size in MiB: first argument (default 256).
#include <unistd.h>

#include <cstdio>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <engine/CryptTask.h>
#include <engine/VextDecryptWorker.h>
#include <envelope_writer/EnvelopeWriter.h>

#include "BenchSupport.h"

namespace {

const char *kPassphrase = "bench passphrase";

void printLine(const char *name, const bench::Measure &m, double mib)
{
    if (!m.ok) {
        std::printf("  %-26s failed\n", name);
        return;
    }
    std::printf("  %-26s %8.3f s %9.1f MiB/s   cpu %6.3f s\n", name, m.seconds, mib / m.seconds,
                m.cpuSeconds);
}

bench::Measure decryptWithWorker(const QString &envelope, const QString &output)
{
    return bench::runHere([&] {
        VextDecryptWorker worker(0, nullptr);
        CryptTask task(envelope, nullptr);
        task.setOutputPath(output);
        task.setPassphrase(QString::fromLatin1(kPassphrase));
        worker.startTask(&task);
        worker.wait();
        return task.status() == Task::Finished;
    });
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const quint64 mib = argc > 1 ? QByteArray(argv[1]).toULongLong() : 256;
    QTemporaryDir dir;
    const QString envelope = dir.filePath(QStringLiteral("big.nimbra-env"));
    const QString output = dir.filePath(QStringLiteral("big.out"));
    std::string why;
    if (!envelope_writer::writePatternEnvelope(QFile::encodeName(envelope).toStdString(),
                                               mib << 20, kPassphrase, {}, &why)) {
        std::fprintf(stderr, "cannot write the envelope: %s\n", why.c_str());
        return 1;
    }
    bench::warm(envelope);
    const auto prepare = [&] {
        QFile::remove(output);
        ::sync(); // the previous run's write-back stays out of the next timing
    };
    const int repeats = 3;
    std::printf("%llu MiB envelope, file to file, page cache warm, best of %d\n",
                static_cast<unsigned long long>(mib), repeats);

    const bench::Measure worker =
        bench::best(repeats, prepare, [&] { return decryptWithWorker(envelope, output); });
    printLine("worker decrypt", worker, double(mib));

    const QString zeros = QStringLiteral("00112233445566778899aabbccddeeff");
    const bench::Measure openssl = bench::best(repeats, prepare, [&] {
        return bench::runCommand(QStringLiteral("openssl"),
                                 {"enc", "-d", "-aes-128-ctr", "-K", zeros, "-iv", zeros, "-in",
                                  envelope, "-out", output});
    });
    printLine("openssl enc -d -aes-128-ctr", openssl, double(mib));

    const bench::Measure copy = bench::best(repeats, prepare, [&] {
        return bench::runCommand(QStringLiteral("dd"),
                                 {"if=" + envelope, "of=" + output, "bs=64k", "status=none"});
    });
    printLine("dd bs=64k copy", copy, double(mib));
    prepare();

    if (worker.ok && openssl.ok && copy.ok) {
        std::printf("  worker speed / openssl:  %.2f  (goal >= 1.5)\n",
                    openssl.seconds / worker.seconds);
        std::printf("  worker speed / dd copy:  %.2f  (goal >= 0.6)\n",
                    copy.seconds / worker.seconds);
    }
    return worker.ok ? 0 : 1;
}

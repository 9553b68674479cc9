// One large envelope decrypted end to end by a worker (file to file, page
// cache warm), beside `openssl enc -d -aes-128-ctr` and a 64 KiB `dd` copy
// of a file of the same size, in interleaved rounds. Size in MiB: first
// argument (default 256).
#include <unistd.h>

#include <cstdio>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <engine/CryptTask.h>
#include <engine/VextDecryptWorker.h>
#include <envelope_writer/EnvelopeWriter.h>

#include "BenchStats.h"
#include "BenchSupport.h"

namespace {

const char *kPassphrase = "bench passphrase";

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
    std::printf("%llu MiB envelope, file to file, page cache warm, %d interleaved rounds\n",
                static_cast<unsigned long long>(mib), bench::kRounds);
    const QString zeros = QStringLiteral("00112233445566778899aabbccddeeff");
    bench::Figure worker, workerCpu, openssl, copy, vsCopy, vsOpenssl;
    // One untimed run first: on a virtual machine the first write to memory
    // the guest has not used for a while waits for the host to back it, which
    // would measure the host rather than the decryption.
    prepare();
    bool ok = decryptWithWorker(envelope, output).ok;
    for (int round = 0; ok && round < bench::kRounds; ++round) {
        prepare();
        bench::resetPeak();
        const bench::Measure w = decryptWithWorker(envelope, output);
        worker.notePeak(bench::peakKiB());
        vsCopy.notePeak(bench::peakKiB());
        prepare();
        const bench::Measure o = bench::runCommand(
            QStringLiteral("openssl"), {"enc", "-d", "-aes-128-ctr", "-K", zeros, "-iv", zeros,
                                        "-in", envelope, "-out", output});
        prepare();
        const bench::Measure d = bench::runCommand(
            QStringLiteral("dd"), {"if=" + envelope, "of=" + output, "bs=64k", "status=none"});
        ok = w.ok && o.ok && d.ok;
        worker.add(double(mib) / w.seconds);
        workerCpu.add(w.cpuSeconds);
        openssl.add(double(mib) / o.seconds);
        copy.add(double(mib) / d.seconds);
        vsCopy.add(d.seconds / w.seconds);
        vsOpenssl.add(o.seconds / w.seconds);
    }
    prepare();
    if (!ok) {
        std::fprintf(stderr, "bench_engine_large: a run failed\n");
        return 1;
    }
    bench::report("worker decrypt", worker, "MiB/s", "", 1);
    bench::report("worker decrypt, CPU seconds", workerCpu, "s", "");
    bench::report("openssl enc -d -aes-128-ctr", openssl, "MiB/s", "", 1);
    bench::report("dd bs=64k copy", copy, "MiB/s", "", 1);
    bench::report("worker speed / openssl", vsOpenssl, "x", "");
    const QByteArray figure =
        QStringLiteral("one %1 MiB envelope, file to file / dd bs=64k").arg(mib).toUtf8();
    bench::report(figure.constData(), vsCopy, "x", ">= 0.9", 3, true);
    return 0;
}

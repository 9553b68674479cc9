#include "BenchSupport.h"

#include <sys/resource.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

namespace bench {
namespace {

double cpuOf(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

} // namespace

Measure runCommand(const QString &program, const QStringList &arguments)
{
    Measure m;
    const double cpuBefore = cpuOf(RUSAGE_CHILDREN);
    QElapsedTimer clock;
    clock.start();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    m.ok = process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit
           && process.exitCode() == 0;
    m.seconds = double(clock.nsecsElapsed()) / 1e9;
    m.cpuSeconds = cpuOf(RUSAGE_CHILDREN) - cpuBefore;
    return m;
}

Measure runHere(const std::function<bool()> &code)
{
    Measure m;
    const double cpuBefore = cpuOf(RUSAGE_SELF);
    QElapsedTimer clock;
    clock.start();
    m.ok = code();
    m.seconds = double(clock.nsecsElapsed()) / 1e9;
    m.cpuSeconds = cpuOf(RUSAGE_SELF) - cpuBefore;
    return m;
}

void warm(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    while (!file.read(1 << 20).isEmpty()) {
    }
}

bool haveProgram(const QString &program)
{
    return !QStandardPaths::findExecutable(program).isEmpty();
}

} // namespace bench

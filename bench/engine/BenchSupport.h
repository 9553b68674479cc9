// Shared helpers of the engine benchmarks: timing a command or a piece of
// code by wall clock and CPU seconds, and printing one result line.
#pragma once

#include <functional>

#include <QString>
#include <QStringList>

namespace bench {

struct Measure {
    double seconds = 0;    // wall clock
    double cpuSeconds = 0; // user + system, of this process or of the command
    bool ok = true;
};

// Runs program with arguments; its CPU time comes from the children's usage.
Measure runCommand(const QString &program, const QStringList &arguments);
// Times code run in this process.
Measure runHere(const std::function<bool()> &code);

// Reads the whole file so that the timed runs find it in the page cache.
void warm(const QString &path);
bool haveProgram(const QString &program);

} // namespace bench

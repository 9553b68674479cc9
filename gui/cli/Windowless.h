// The command line's windowless modes: "-test", "-test-list", "-v",
// "--version", "--help" and "--decrypt". They run on a QCoreApplication,
// so they answer where no display can be opened (over SSH, in cron, with a
// stale DISPLAY), and they never open the window's settings store.
#pragma once

#include <QString>
#include <QStringList>

namespace cli {

// True when word, the command line's element 1, names a windowless mode.
// Compared exactly and case-sensitively, like every option of the program.
bool isWindowlessMode(const char *word);
bool isWindowlessMode(const QString &word);

// Creates the QCoreApplication, loads the locale's texts and runs the mode
// that argv[1] names. Returns the process's exit code: 0 or -1, and for
// "--decrypt" also -2, -3 or -4.
int runWindowless(int argc, char **argv);

// The mode that args[1] names, on the application object that exists.
int runWindowlessMode(const QStringList &args);

// Writes text and a line end, as UTF-8, to standard output or standard
// error, and flushes. A closed stream loses the text quietly.
void printLine(const QString &text);
void printErrorLine(const QString &text);

// The help text of every mode, to standard output.
void printHelp(const QString &program);

} // namespace cli

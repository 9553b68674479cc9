#include "Windowless.h"

#include "DecryptCommand.h"

#include "../Version.h"

#include <engine/FileLoading.h>
#include <localization/LocaleLoader.h>
#include <localization/LocaleText.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QVector>

#include <cstdio>
#include <cstring>

namespace cli {

namespace {

const char *const kModes[] = {"-test", "-test-list", "-v", "--version", "--help", "--decrypt"};

void writeLine(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

// A list file that cannot be read says why; a wrong count stays silent.
int runTestList(const QStringList &args)
{
    if (args.size() != 3)
        return -1;
    QString reason;
    if (FileLoading::scanListFileForEnvelopes(args.at(2), &reason))
        return 0;
    if (!reason.isEmpty())
        printErrorLine(NM_TR("Could not open file %1$s, for reading. %2$s", args.at(2).toUtf8().constData(),
                             reason.toUtf8().constData()));
    return -1;
}

// "--help": every form of the command line, the window's and the windowless
// ones, with the options of "--decrypt" and its exit codes.
struct HelpRow {
    QString syntax; // not translated: what is typed
    QString text;   // localized
};

// Writes rows in two columns, the texts lined up after the widest syntax.
void printRows(const QVector<HelpRow> &rows)
{
    int width = 0;
    for (const HelpRow &row : rows)
        width = qMax(width, row.syntax.size());
    for (const HelpRow &row : rows)
        printLine(QStringLiteral("  ") + row.syntax.leftJustified(width + 2) + row.text);
}

QVector<HelpRow> modeRows(const QString &p)
{
    return {
        {p, NM_TR("Opens the window.")},
        {p + QStringLiteral(" PATH..."), NM_TR("Opens the window and loads the envelopes in the given files and folders.")},
        {p + QStringLiteral(" '*'"), NM_TR("Opens the window and loads every file of the current folder.")},
        {p + QStringLiteral(" -file-list LIST"),
         NM_TR("Opens the window and loads the paths listed in LIST, one per line.")},
        {p + QStringLiteral(" -test PATH..."),
         NM_TR("Exits with 0 when the given files and folders hold an envelope, with -1 otherwise.")},
        {p + QStringLiteral(" -test-list LIST"), NM_TR("The same for the paths listed in LIST.")},
        {p + QStringLiteral(" -v, --version"), NM_TR("Prints the version.")},
        {p + QStringLiteral(" --help"), NM_TR("Prints this help.")},
        {p + QStringLiteral(" --decrypt [OPTION...] PATH..."),
         NM_TR("Decrypts the envelopes in the given files and folders without a window.")},
    };
}

QVector<HelpRow> decryptRows()
{
    return {
        {QStringLiteral("--passphrase-file FILE"),
         NM_TR("Reads the passphrase from the first line of FILE; - stands for standard input.")},
        {QString(), NM_TR("Without it the passphrase is asked for on the terminal.")},
        {QStringLiteral("--threads N"),
         NM_TR("Decrypts N files at once, 1 to 8 (default: the number of processors, at most 8).")},
        {QStringLiteral("--delete-encrypted"), NM_TR("Deletes each envelope once its plaintext is safely written.")},
        {QStringLiteral("--quiet"), NM_TR("Prints only errors and the summary.")},
        {QStringLiteral("--"), NM_TR("Ends the options; every later word is a path.")},
    };
}

QVector<HelpRow> exitCodeRows()
{
    return {
        {QStringLiteral("0"), NM_TR("Every file was decrypted.")},
        {QStringLiteral("-2"), NM_TR("Some files failed, none is pending.")},
        {QStringLiteral("-3"), NM_TR("Nothing failed, but some files are pending (interrupted).")},
        {QStringLiteral("-4"), NM_TR("Some files failed and some are pending.")},
        {QStringLiteral("-1"), NM_TR("The command line or the passphrase could not be used.")},
    };
}

void printVersion()
{
    printLine(QStringLiteral(NM_APPLICATION_NAME " %1").arg(QStringLiteral(NM_VERSION), 0, QLatin1Char(' ')));
}

} // namespace

bool isWindowlessMode(const char *word)
{
    for (const char *mode : kModes) {
        if (std::strcmp(word, mode) == 0)
            return true;
    }
    return false;
}

bool isWindowlessMode(const QString &word)
{
    return isWindowlessMode(word.toUtf8().constData());
}

int runWindowless(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    loadLocaleStrings();
    // The toolkit's arguments are text, which loses names that are not UTF-8;
    // "-test" answers for the bytes the system was given.
    if (std::strcmp(argv[1], "-test") == 0)
        return argc >= 3 && FileLoading::scanPathsForEnvelopes(QByteArrayList(argv + 2, argv + argc)) ? 0 : -1;
    return runWindowlessMode(QCoreApplication::arguments());
}

int runWindowlessMode(const QStringList &args)
{
    const QString mode = args.value(1);
    if (mode == QLatin1String("-test")) {
        QByteArrayList paths;
        for (const QString &path : args.mid(2))
            paths << path.toUtf8();
        return !paths.isEmpty() && FileLoading::scanPathsForEnvelopes(paths) ? 0 : -1;
    }
    if (mode == QLatin1String("-test-list"))
        return runTestList(args);
    if (mode == QLatin1String("-v") || mode == QLatin1String("--version")) {
        printVersion();
        return 0;
    }
    if (mode == QLatin1String("--help")) {
        printHelp(QFileInfo(args.value(0)).fileName());
        return 0;
    }
    if (mode == QLatin1String("--decrypt"))
        return runDecryptCommand(args);
    return -1;
}

void printLine(const QString &text)
{
    writeLine(stdout, text);
}

void printErrorLine(const QString &text)
{
    writeLine(stderr, text);
}

void printHelp(const QString &program)
{
    printLine(NM_TR("Usage:"));
    printRows(modeRows(program));
    printLine(QString());
    printLine(NM_TR("Options of --decrypt:"));
    printRows(decryptRows());
    printLine(QString());
    printLine(NM_TR("Exit codes of --decrypt:"));
    printRows(exitCodeRows());
    printLine(QString());
    printLine(NM_TR("A list file may also be a pipe, such as /dev/stdin."));
}

} // namespace cli

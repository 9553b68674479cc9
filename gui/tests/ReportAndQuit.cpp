// The program with one addition for the command-line test: once the loading
// that its command line started has ended, it prints "title=<window title>"
// and one "path=<path>" line per pending path, then quits with 0. A path in
// NM_FILE_OPEN comes first as the operating system's request to open it.
#include <BusyDialog.h>
#include <MainWindow.h>
#include <Program.h>

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include <QCoreApplication>
#include <QFileOpenEvent>
#include <QTimer>

#include <cstdio>

static void reportWhenLoaded(MainWindow *window)
{
    if (TaskManager::instance()->isRunning() || BusyDialog::instance()->isVisible()) {
        QTimer::singleShot(20, window, [window] { reportWhenLoaded(window); });
        return;
    }
    std::printf("title=%s\n", qUtf8Printable(window->windowTitle()));
    for (const QString &path : DecryptManager::instance()->pendingPaths())
        std::printf("path=%s\n", qUtf8Printable(path));
    std::fflush(stdout);
    QCoreApplication::exit(0);
}

int main(int argc, char **argv)
{
    return runProgram(argc, argv, [](MainWindow *window) {
        if (qEnvironmentVariableIsSet("NM_FILE_OPEN"))
            QCoreApplication::postEvent(qApp, new QFileOpenEvent(qEnvironmentVariable("NM_FILE_OPEN")));
        QTimer::singleShot(0, window, [window] { reportWhenLoaded(window); });
    });
}

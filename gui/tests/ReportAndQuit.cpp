// The program with one addition for the command-line test: once the loading
// that its command line started has ended, it prints "title=<window title>"
// and one "path=<path>" line per pending path, then quits with 0.
#include <BusyDialog.h>
#include <MainWindow.h>
#include <Program.h>

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include <QCoreApplication>
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
        QTimer::singleShot(0, window, [window] { reportWhenLoaded(window); });
    });
}

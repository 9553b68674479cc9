#include "Program.h"

#include "Application.h"
#include "MainWindow.h"
#include "Version.h"

#include <cstring>

namespace {
// The modes that answer without a window also work without a display, for
// example from a script on a headless machine.
void allowWindowlessModes(int argc, char **argv)
{
    if (argc < 2 || qEnvironmentVariableIsSet("QT_QPA_PLATFORM") || qEnvironmentVariableIsSet("DISPLAY")
        || qEnvironmentVariableIsSet("WAYLAND_DISPLAY"))
        return;
    for (const char *mode : {"-test", "-test-list", "-v", "--version"}) {
        if (std::strcmp(argv[1], mode) == 0)
            qputenv("QT_QPA_PLATFORM", "offscreen");
    }
}
} // namespace

int runProgram(int argc, char **argv, std::function<void(MainWindow *)> afterShow)
{
    allowWindowlessModes(argc, argv);
    // Set before anything opens a settings store, which these values key.
    QCoreApplication::setOrganizationName(QStringLiteral(NM_ORGANIZATION));
    QCoreApplication::setOrganizationDomain(QStringLiteral(NM_ORGANIZATION_DOMAIN));
    QCoreApplication::setApplicationName(QStringLiteral(NM_APPLICATION_NAME));

    auto *app = new Application(argc, argv);
    auto *window = new MainWindow(nullptr);
    window->show();
    if (afterShow)
        afterShow(window);

    const int code = app->exec();
    delete window;
    delete app;
    return code;
}

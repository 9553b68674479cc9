// Start-up: the identity that keys the settings store, the application, the
// main window (which may end the process while reading the command line),
// and the event loop, whose result is the exit code.
#include "Application.h"
#include "MainWindow.h"
#include "DeveloperHooks.h"
#include "Version.h"

#include <cstring>

namespace {
// The modes that answer without a window also work without a display.
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

int main(int argc, char **argv)
{
    allowWindowlessModes(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral(NM_ORGANIZATION));
    QCoreApplication::setOrganizationDomain(QStringLiteral(NM_ORGANIZATION_DOMAIN));
    QCoreApplication::setApplicationName(QStringLiteral(NM_APPLICATION_NAME));

    auto *app = new Application(argc, argv);
    auto *window = new MainWindow(nullptr);
    window->show();
    Nmb::Gui::installDeveloperHooks(window);

    const int code = app->exec();
    delete window;
    delete app;
    return code;
}

#include "Program.h"

#include "Application.h"
#include "MainWindow.h"
#include "Version.h"

#include <cstdio>
#include <cstring>

namespace {
bool hasDisplay()
{
    return qEnvironmentVariableIsSet("QT_QPA_PLATFORM") || qEnvironmentVariableIsSet("DISPLAY")
        || qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

bool isWindowlessMode(int argc, char **argv)
{
    if (argc < 2)
        return false;
    for (const char *mode : {"-test", "-test-list", "-v", "--version"}) {
        if (std::strcmp(argv[1], mode) == 0)
            return true;
    }
    return false;
}
} // namespace

int runProgram(int argc, char **argv, std::function<void(MainWindow *)> afterShow)
{
    if (!hasDisplay()) {
        // The modes that answer without a window also work on a headless
        // machine; the window itself needs a display, so say how to get one
        // instead of letting the toolkit abort.
        if (!isWindowlessMode(argc, argv)) {
            std::fprintf(stderr, "%s: no display to open the window on (DISPLAY is not set).\n"
                                 "Start it from a desktop session, or on a virtual display with: xvfb-run %s\n",
                         argv[0], argv[0]);
            return 1;
        }
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
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

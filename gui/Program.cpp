#include "Program.h"

#include "Application.h"
#include "GuiSupport.h"
#include "MainWindow.h"
#include "Version.h"

#include <Windowless.h>
#include <engine/DecryptManager.h>
#include <localization/LocaleLoader.h>
#include <localization/LocaleText.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include <sys/prctl.h>

namespace {

const char *s_program = "nimbra-crypt";

// Says why there is no window and how to get one. Runs while the toolkit
// fails to open its display, when the application object is far enough
// along to find the strings files.
void explainNoDisplay()
{
    loadLocaleStrings();
    const QByteArray display = qgetenv("DISPLAY");
    const QString reason = display.isEmpty() && qgetenv("WAYLAND_DISPLAY").isEmpty()
        ? NM_TR("DISPLAY is not set")
        : NM_TR("the display %s cannot be opened", display.isEmpty() ? qgetenv("WAYLAND_DISPLAY").constData()
                                                                      : display.constData());
    const QString text = NM_TR("%1$s: no display to open the window on (%2$s).", s_program,
                               reason.toUtf8().constData())
        + QLatin1Char('\n') + NM_TR("Start it from a desktop session, or on a virtual display with: xvfb-run %s", s_program);
    std::fprintf(stderr, "%s\n", text.toUtf8().constData());
}

// What the toolkit says while it opens the display; shown once it has.
struct HeldMessage {
    QtMsgType type;
    QByteArray category;
    QString text;
};
std::vector<HeldMessage> s_held;

// The toolkit ends the process with a fatal message when its platform plugin
// cannot reach a display; the explanation and exit code -1 replace that
// abort and the plugin's messages before it.
void onToolkitMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type != QtFatalMsg) {
        s_held.push_back({type, QByteArray(context.category), message});
        return;
    }
    explainNoDisplay();
    std::fflush(stderr);
    std::_Exit(-1);
}

std::unique_ptr<Application> openDisplay(int &argc, char **argv)
{
    s_program = argv[0];
    const QtMessageHandler previous = qInstallMessageHandler(onToolkitMessage);
    std::unique_ptr<Application> app(new Application(argc, argv));
    qInstallMessageHandler(previous);
    for (const HeldMessage &held : s_held)
        previous(held.type, QMessageLogContext(nullptr, 0, nullptr, held.category.constData()), held.text);
    s_held.clear();
    return app;
}

int runWindow(int argc, char **argv, const std::function<void(MainWindow *)> &afterShow)
{
    // Toolkit attributes that must precede the application object go here.
    Nmb::Gui::enableHighDpi();
    std::unique_ptr<Application> app = openDisplay(argc, argv);
    auto *window = new MainWindow(nullptr);
    window->show();
    if (afterShow)
        afterShow(window);

    const int code = app->exec();
    delete window;
    // A batch stopped at exit still holds copies of its passphrase in the
    // manager, its tasks and workers: they are overwritten as these go.
    DecryptManager::release();
    return code;
}

} // namespace

int runProgram(int argc, char **argv, std::function<void(MainWindow *)> afterShow)
{
    // For the whole life of the program, before any passphrase is read: no
    // core dump (which would hold the passphrase and plaintext), and no
    // other process of the same user may attach to it or read its memory.
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);

    // Set before anything opens a settings store, which these values key.
    QCoreApplication::setOrganizationName(QStringLiteral(NM_ORGANIZATION));
    QCoreApplication::setOrganizationDomain(QStringLiteral(NM_ORGANIZATION_DOMAIN));
    QCoreApplication::setApplicationName(QStringLiteral(NM_APPLICATION_NAME));

    // Decided before the toolkit opens a display: these modes need none.
    if (argc >= 2 && cli::isWindowlessMode(argv[1]))
        return cli::runWindowless(argc, argv);
    return runWindow(argc, argv, afterShow);
}

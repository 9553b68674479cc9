#include "BatchNotifier.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QIcon>
#include <QSystemTrayIcon>
#include <QVariantMap>
#include <QWidget>

#include <localization/LocaleText.h>

namespace Nmb {
namespace Gui {

namespace {
const char *const kService = "org.freedesktop.Notifications";

qint64 monotonicMs()
{
    static QElapsedTimer timer;
    if (!timer.isValid())
        timer.start();
    return timer.elapsed();
}
} // namespace

BatchNotifier::BatchNotifier(QWidget *window_, Clock clock_, Sender sender_)
    : window(window_)
    , clock(clock_ ? std::move(clock_) : Clock(monotonicMs))
    , sender(sender_ ? std::move(sender_) : Sender(sendDesktopNotification))
{
}

void BatchNotifier::batchStarted()
{
    startedAt = clock();
}

bool BatchNotifier::batchFinished(const QString &summary)
{
    const bool longRun = startedAt >= 0 && clock() - startedAt > kMinimumMs;
    startedAt = -1;
    if (!longRun || window->isActiveWindow())
        return false;
    sender(NM_TR("Decryption finished"), summary.trimmed());
    return true;
}

void BatchNotifier::sendDesktopNotification(const QString &title, const QString &text)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected() && bus.interface()->isServiceRegistered(QLatin1String(kService))) {
        QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(kService),
                                                           QStringLiteral("/org/freedesktop/Notifications"),
                                                           QLatin1String(kService), QStringLiteral("Notify"));
        // app name, replaces id, icon, summary, body, actions, hints, timeout (-1: the server's)
        call << QCoreApplication::applicationName() << 0u << QString() << title << text << QStringList()
             << QVariantMap() << -1;
        bus.call(call, QDBus::NoBlock);
        return;
    }
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return;
    // The tray shows a message only for a visible icon; it stays for the
    // life of the program, as a tray icon does.
    static QSystemTrayIcon *tray = nullptr;
    if (!tray) {
        tray = new QSystemTrayIcon(QIcon(QStringLiteral(":/crypt/crypt.png")), qApp);
        tray->show();
    }
    tray->showMessage(title, text);
}

} // namespace Gui
} // namespace Nmb

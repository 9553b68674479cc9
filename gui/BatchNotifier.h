// Tells a person who has turned to another window that a long batch ended:
// a desktop notification (the freedesktop notification service on the
// session bus, or the system tray's message where there is no such
// service). Short batches, and batches that end while the window is active,
// pass without one.
#pragma once

#include <QString>

#include <functional>

class QWidget;

namespace Nmb {
namespace Gui {

class BatchNotifier
{
public:
    // A batch shorter than this ends without a notification.
    static constexpr qint64 kMinimumMs = 10000;

    using Clock = std::function<qint64()>;                                  // milliseconds, monotonic
    using Sender = std::function<void(const QString &title, const QString &text)>;

    // window: whose activity decides; the default clock is monotonic and
    // the default sender the desktop's notification service.
    explicit BatchNotifier(QWidget *window, Clock clock = Clock(), Sender sender = Sender());

    void batchStarted();
    // Notifies with summary when the batch ran longer than kMinimumMs and
    // the window is not the active one. Returns whether it notified.
    bool batchFinished(const QString &summary);

    // The default sender: D-Bus notification, else the tray's message.
    static void sendDesktopNotification(const QString &title, const QString &text);

private:
    QWidget *window;
    Clock clock;
    Sender sender;
    qint64 startedAt = -1;
};

} // namespace Gui
} // namespace Nmb

#include "GuiSupport.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <QWidget>

#include <mutex>

static void registerResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace Nmb {
namespace Gui {

void postAccessibleFocus(QObject *object)
{
    QAccessibleEvent event(object, QAccessible::Focus);
    QAccessible::updateAccessibility(&event);
}

void enableHighDpi()
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
}

void initResources()
{
    static std::once_flag once;
    std::call_once(once, registerResources);
}

void centreOnPrimaryScreen(QWidget *window)
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    window->setGeometry(QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, window->size(),
                                            screen->availableGeometry()));
}

} // namespace Gui
} // namespace Nmb

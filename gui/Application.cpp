#include "Application.h"

#include <engine/TaskManager.h>

#include <QDebug>
#include <QFileOpenEvent>

Application::Application(int &argc, char **argv)
    : QApplication(argc, argv)
{
}

bool Application::event(QEvent *event)
{
    if (event->type() != QEvent::FileOpen)
        return QApplication::event(event);
    qDebug() << "File Open Event";
    const QString path = static_cast<QFileOpenEvent *>(event)->file();
    if (path.isEmpty())
        return false;
    TaskManager::instance()->loadFiles({path}, true);
    return true;
}

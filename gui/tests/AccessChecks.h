// The main window as the window tests meet it, and checks of it as a screen
// reader, a keyboard and a larger or longer text see it: what the status
// line announced, texts their controls cut, mnemonics that clash.
#pragma once

#include "Application.h"
#include "GuiTestSupport.h"
#include "MainWindow.h"
#include "Mnemonics.h"

#include <QTemporaryDir>

#include <private/qguiapplication_p.h>
#include <qpa/qplatformaccessibility.h>
#include <qpa/qplatformintegration.h>

// A temporary folder and a main window, shown and active on request.
struct WindowFixture {
    QTemporaryDir dir;
    std::unique_ptr<MainWindow> window;

    template <typename T = QWidget> T *child(const char *name, QObject *in = nullptr) { return (in ? in : window.get())->findChild<T *>(name); }
    QString path(const QString &name) const { return dir.path() + '/' + name; }
    static QString tag() { return QTest::currentDataTag(); }
    void showWindow()
    {
        window.reset(new MainWindow);
        window->show();
        QApplication::setActiveWindow(window.get()); // the offscreen platform activates nothing itself
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
    }
};

// The window reads the process's command line: it gets none, whatever
// arguments select the test functions.
#define NM_WINDOW_TEST_MAIN(TestClass)              \
    int main(int argc, char **argv)                 \
    {                                               \
        int appArgc = 1;                            \
        Application app(appArgc, argv);             \
        TestClass test;                             \
        return QTest::qExec(&test, argc, argv);     \
    }

// Every text the status line showed while it lives, in order, as a screen
// reader hears them: through the accessibility events the window posts.
struct StatusLineRecorder {
    StatusLineRecorder()
    {
        texts().clear();
        QAccessible::installUpdateHandler([](QAccessibleEvent *event) {
            auto *label = qobject_cast<QLabel *>(event->object());
            if (event->type() == QAccessible::NameChanged && label && qobject_cast<QStatusBar *>(label->parent()))
                texts() << label->text();
        });
        // What a screen reader's connecting does; without it no event is sent.
        if (QPlatformAccessibility *platform = QGuiApplicationPrivate::platformIntegration()->accessibility())
            platform->setActive(true);
    }
    ~StatusLineRecorder() { QAccessible::installUpdateHandler(nullptr); }
    static QStringList &texts()
    {
        static QStringList shown;
        return shown;
    }
};

// The labels, buttons and combo boxes of window that show a one-line text
// narrower than it needs.
inline QStringList clippedTexts(QWidget *window)
{
    QStringList clipped;
    for (QWidget *w : window->findChildren<QWidget *>()) {
        auto *label = qobject_cast<QLabel *>(w);
        const bool oneLine = label ? !label->wordWrap() && !label->text().isEmpty()
                                   : qobject_cast<QPushButton *>(w) || qobject_cast<QCheckBox *>(w) || qobject_cast<QComboBox *>(w);
        if (oneLine && w->isVisibleTo(window) && w->width() < w->sizeHint().width())
            clipped << w->objectName();
    }
    return clipped;
}

// Texts that share a keyboard scope with another of the same mnemonic, or
// that have none: each menu's items; the menu bar with the window's labels
// and check boxes and the actions' Alt shortcuts.
inline QStringList mnemonicProblems(QMainWindow *window)
{
    QStringList problems, windowTexts;
    const auto scope = [&problems](const QStringList &texts, QString taken) {
        for (const QString &text : texts) {
            const QChar key = Nmb::Gui::mnemonicOf(text);
            if (key.isNull() || taken.contains(key))
                problems << text;
            taken += key;
        }
    };
    for (QAction *menuAction : window->menuBar()->actions()) {
        QStringList items;
        for (QAction *action : menuAction->menu()->actions())
            items << action->text();
        scope(items.filter(QRegularExpression(".")), QString());
        windowTexts << menuAction->menu()->title();
    }
    for (QWidget *w : window->centralWidget()->findChildren<QWidget *>())
        if (qobject_cast<QCheckBox *>(w) || (qobject_cast<QLabel *>(w) && static_cast<QLabel *>(w)->buddy()))
            windowTexts << w->property("text").toString();
    QString altKeys;
    for (QAction *action : window->findChildren<QAction *>())
        if (action->shortcut().toString().contains(QRegularExpression("^Alt\\+.$")))
            altKeys += action->shortcut().toString().back().toLower();
    scope(windowTexts, altKeys);
    return problems;
}

// The main window and its dialogs used without a mouse, through a screen
// reader's eyes and on light and dark palettes; the task table's rows as
// tasks come, run again and go.
#include "AboutWindow.h"
#include "AccessChecks.h"
#include "Application.h"
#include "BatchNotifier.h"
#include "BusyDialog.h"
#include "GuiTestSupport.h"
#include "MainWindow.h"
#include "Readability.h"
#include "SettingsDialog.h"

#include <engine/CryptTask.h>
#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include <QTemporaryDir>
#include <QtWidgets>

class AccessTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void keyboardAlone();
    void tableScrollsAndFollows();
    void everyFocusableControlHasAName();
    void textsFit();
    void oneRowPerTask();
    void rowColoursReadable_data();
    void rowColoursReadable();
    void notifiesLongBatchWhenAway_data();
    void notifiesLongBatchWhenAway();

private:
    template <typename T> T *child(const char *name) { return window->findChild<T *>(QLatin1String(name)); }
    // A task shown through the engine's own signal, as the window gets it.
    CryptTask *showTask(const QString &name, Task::STATUS status, float progress = 1.0f);
    void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);

    QTemporaryDir dir;
    std::unique_ptr<MainWindow> window;
    std::vector<std::unique_ptr<CryptTask>> tasks;
};

void AccessTest::initTestCase()
{
    QVERIFY(dir.isValid());
    useSettingsIn(dir.path());
}

void AccessTest::init()
{
    tasks.clear();
    window.reset(new MainWindow);
    window->show();
    QApplication::setActiveWindow(window.get()); // the offscreen platform activates nothing itself
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
}

CryptTask *AccessTest::showTask(const QString &name, Task::STATUS status, float progress)
{
    tasks.emplace_back(new CryptTask(dir.path() + '/' + name, nullptr));
    CryptTask *task = tasks.back().get();
    task->setOutputPath(task->sourcePath());
    task->setStatus(status);
    task->setProgress(progress);
    emit DecryptManager::instance()->statsChanged(task);
    QCoreApplication::processEvents();
    return task;
}

void AccessTest::press(int key, Qt::KeyboardModifiers modifiers)
{
    QWidget *target = QApplication::activePopupWidget() ? QApplication::activePopupWidget()
                    : QApplication::activeModalWidget() ? QApplication::activeModalWidget()
                                                        : QApplication::focusWidget();
    QVERIFY(target);
    QTest::keyClick(target, Qt::Key(key), modifiers);
}

// Type, decrypt, stop, open a menu and a dialog from it: no mouse needed.
void AccessTest::keyboardAlone()
{
    QCOMPARE(QApplication::focusWidget(), child<QWidget>("_phraseTxt"));
    QVERIFY2(mnemonicProblems(window.get()).isEmpty(), qPrintable(mnemonicProblems(window.get()).join('\n')));

    auto *button = child<QPushButton>("_decryptBtn");
    button->setEnabled(true);
    press(Qt::Key_Return);
    QTRY_COMPARE(button->text(), QStringLiteral("Stop"));
    QVERIFY(!button->toolTip().isEmpty());
    press(Qt::Key_Return);
    QTRY_COMPARE(button->text(), QStringLiteral("Decrypt"));
    QVERIFY(button->toolTip().isEmpty());
    press(Qt::Key_Tab);
    QVERIFY(QApplication::focusWidget() != child<QWidget>("_phraseTxt"));
    emit DecryptManager::instance()->allFinished(); // a batch ends: back to the passphrase
    QTRY_COMPARE(QApplication::focusWidget(), child<QWidget>("_phraseTxt"));

    auto *options = child<QMenu>("menuCommands");
    press(Nmb::Gui::mnemonicOf(options->title()).toUpper().unicode(), Qt::AltModifier);
    QTRY_COMPARE(QApplication::activePopupWidget(), options);
    press(Nmb::Gui::mnemonicOf(child<QAction>("actionSettings")->text()).toUpper().unicode());
    QTRY_VERIFY(SettingsDialog::instance()->isVisible());
    QApplication::setActiveWindow(SettingsDialog::instance());
    press(Qt::Key_Escape);
    QVERIFY(!SettingsDialog::instance()->isVisible());
}

void AccessTest::tableScrollsAndFollows()
{
    auto *table = child<QTableWidget>("_messagesTbl");
    QScrollBar *bar = table->verticalScrollBar();
    for (int i = 0; i < 60; ++i)
        showTask(QString("file %1").arg(i), Task::Finished);
    QVERIFY(bar->maximum() > 0);
    QCOMPARE(bar->value(), bar->maximum());

    for (int tabs = 0; tabs < 20 && QApplication::focusWidget() != table; ++tabs)
        press(Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), table);
    const auto frameShowsFocus = [table] {
        const QImage shot = table->grab().toImage();
        return shot.pixelColor(0, shot.height() / 2) == table->palette().color(QPalette::Highlight);
    };
    QVERIFY(frameShowsFocus());
    press(Qt::Key_Home);
    QCOMPARE(bar->value(), 0);
    showTask("while reading the top", Task::Finished);
    QCOMPARE(bar->value(), 0); // scrolled away from the end: stays put
    press(Qt::Key_PageDown);
    QVERIFY(bar->value() > 0);
    press(Qt::Key_End);
    const int end = bar->maximum();
    CryptTask *last = showTask("at the end again", Task::Decrypting);
    QTRY_VERIFY(bar->maximum() > end);
    QTRY_COMPARE(bar->value(), bar->maximum());
    last->setStatus(Task::Error); // its row grows by a few lines
    last->setErrorMessage(QString(200, 'x').replace("xxxxx", "long "));
    emit DecryptManager::instance()->statsChanged(last);
    QTRY_VERIFY(bar->maximum() > end + 1);
    QTRY_COMPARE(bar->value(), bar->maximum());
    press(Qt::Key_Tab); // leaves the table instead of moving between cells
    QVERIFY(QApplication::focusWidget() != table);
    QVERIFY(!frameShowsFocus());
}

// Walks the accessibility tree of every window as a screen reader does.
void AccessTest::everyFocusableControlHasAName()
{
    showTask("a row", Task::Finished);
    QWidget *root = nullptr;
    const std::function<void(QAccessibleInterface *, QStringList *)> walk = [&walk, &root](QAccessibleInterface *iface, QStringList *nameless) {
        auto *widget = qobject_cast<QWidget *>(iface->object());
        if (widget && widget != root && !widget->isVisibleTo(root)) // a closed pop-up, a hidden button
            return;
        // A table tells no focusability of its own; its widget does.
        const bool focusable = widget ? widget->focusPolicy() & Qt::TabFocus : iface->state().focusable;
        if (focusable && iface->text(QAccessible::Name).trimmed().isEmpty())
            *nameless << QString("%1 (%2)").arg(iface->object() ? iface->object()->objectName() : QString(), iface->object() ? iface->object()->metaObject()->className() : "cell");
        for (int i = 0; i < iface->childCount(); ++i)
            if (QAccessibleInterface *child = iface->child(i))
                walk(child, nameless);
    };
    for (QWidget *w : std::initializer_list<QWidget *>{window.get(), SettingsDialog::instance(), BusyDialog::instance(), AboutWindow::instance()}) {
        QStringList nameless;
        root = w;
        walk(QAccessible::queryAccessibleInterface(w), &nameless);
        QVERIFY2(nameless.isEmpty(), qPrintable(w->objectName() + ": " + nameless.join(", ")));
    }
    // Status-line changes reach the screen reader.
    StatusLineRecorder recorder;
    emit TaskManager::instance()->statusMessage("4 files loaded.", true);
    QTRY_VERIFY(recorder.texts().contains("   4 files loaded."));
}

// Also run with QT_SCALE_FACTOR set.
void AccessTest::textsFit()
{
    SettingsDialog::instance()->show();
    BusyDialog::instance()->show();
    for (QWidget *w : std::initializer_list<QWidget *>{window.get(), SettingsDialog::instance(), BusyDialog::instance()}) {
        QVERIFY(QTest::qWaitForWindowExposed(w));
        QVERIFY2(clippedTexts(w).isEmpty(), qPrintable(w->objectName() + ": " + clippedTexts(w).join('\n')));
        w->hide();
    }
}

// A stopped file that runs again keeps one row, and a row goes with its task.
void AccessTest::oneRowPerTask()
{
    auto *table = child<QTableWidget>("_messagesTbl");
    const auto shown = [table] {
        QStringList rows;
        for (int row = 0; row < table->rowCount(); ++row)
            rows << table->item(row, 0)->text() + ' ' + table->item(row, 1)->text() + ' ' + table->item(row, 2)->data(Qt::UserRole).toString();
        return rows;
    };
    showTask("a", Task::Cancelled, 0.64f);
    showTask("b", Task::Finished);
    showTask("a", Task::Finished);
    QCOMPARE(shown(), (QStringList{"a 100% 1", "b 100% 1"}));
    tasks.erase(tasks.begin()); // the stopped attempt goes
    QCOMPARE(shown(), (QStringList{"a 100% 1", "b 100% 1"}));
    tasks.erase(tasks.begin()); // b goes
    QCOMPARE(shown(), QStringList{"a 100% 1"});

    // Every view switch rebuilds the table; a new task, maybe at a freed
    // address, still gets exactly one row.
    for (int view : {1, 0, 2, 0})
        child<QComboBox>("_viewComboBox")->setCurrentIndex(view);
    for (int round = 0; round < 3; ++round) {
        emit DecryptManager::instance()->statsChanged(showTask("c", Task::Decrypting, 0.5f));
        QCoreApplication::processEvents();
        QCOMPARE(shown(), QStringList{"c 50% 0"});
        tasks.clear();
        QCOMPARE(table->rowCount(), 0);
    }
}

void AccessTest::rowColoursReadable_data()
{
    QTest::addColumn<QPalette>("palette");
    QTest::addColumn<bool>("ownColours"); // the light palette keeps the usual colours
    QTest::newRow("light") << QApplication::style()->standardPalette() << true;
    QPalette dark(QColor(53, 53, 53), QColor(53, 53, 53));
    dark.setColor(QPalette::Base, QColor(30, 30, 30));
    dark.setColor(QPalette::AlternateBase, QColor(45, 45, 45));
    QTest::newRow("dark") << dark << false;
}

// At least 4.5:1 against both row backgrounds of the desktop's palette.
void AccessTest::rowColoursReadable()
{
    QFETCH(QPalette, palette);
    QFETCH(bool, ownColours);
    const QColor own[] = {QColor("blue"), QColor("green"), QColor(146, 4, 4), QColor("black"), QColor("black")};
    const QPalette before = QApplication::palette();
    QApplication::setPalette(palette);
    window.reset(new MainWindow);
    for (auto status : {Task::Decrypting, Task::Finished, Task::Error, Task::Cancelled})
        showTask(QString::number(status), status, 0.5f);
    auto *table = child<QTableWidget>("_messagesTbl");
    QCOMPARE(table->rowCount(), 4);
    for (int row = 0; row < table->rowCount(); ++row) {
        const QColor colour = table->item(row, 2)->foreground().color();
        const int status = table->item(row, 2)->data(Qt::UserRole).toInt();
        for (auto role : {QPalette::Base, QPalette::AlternateBase})
            QVERIFY2(Nmb::Gui::contrastRatio(colour, table->palette().color(role)) >= 4.5, qPrintable(colour.name() + " on " + table->palette().color(role).name()));
        if (ownColours)
            QCOMPARE(colour, own[status]);
    }
    QApplication::setPalette(before);
}

void AccessTest::notifiesLongBatchWhenAway_data()
{
    QTest::addColumn<int>("ranMs");
    QTest::addColumn<bool>("away");
    QTest::addColumn<bool>("notified");
    QTest::newRow("long, away") << 10001 << true << true;
    QTest::newRow("long, watching") << 60000 << false << false;
    QTest::newRow("10 s, away") << 10000 << true << false;
}

void AccessTest::notifiesLongBatchWhenAway()
{
    QFETCH(int, ranMs);
    QFETCH(bool, away);
    QFETCH(bool, notified);
    qint64 now = 5000;
    QStringList sent;
    Nmb::Gui::BatchNotifier notifier(window.get(), [&now] { return now; },
                                     [&sent](const QString &title, const QString &text) { sent << title << text; });
    QWidget other;
    other.show();
    QApplication::setActiveWindow(away ? &other : static_cast<QWidget *>(window.get()));
    notifier.batchStarted();
    now += ranMs;
    QCOMPARE(notifier.batchFinished("   3 finished, 0 failed, 0 pending, 3 total"), notified);
    const QStringList expected{"Decryption finished", "3 finished, 0 failed, 0 pending, 3 total"};
    QCOMPARE(sent, notified ? expected : QStringList());
}

// The window reads the process's command line: it gets none.
int main(int argc, char **argv)
{
    int appArgc = 1;
    Application app(appArgc, argv);
    AccessTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "AccessTest.moc"

// The main window driven like a user would, against the real engine and
// real envelopes in a temporary folder.
#include "Application.h"
#include "BusyDialog.h"
#include "GuiTestSupport.h"
#include "MainWindow.h"
#include "SettingsDialog.h"

#include <engine/DecryptManager.h>

#include <QTemporaryDir>
#include <QtWidgets>

namespace {
const int kWait = 60000; // generous for sanitizer builds; never a timing assertion
const QString kPassphrase = QStringLiteral("correct horse");
} // namespace

class MainWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void widgetsAndActions_data();
    void widgetsAndActions();
    void dragRefusedWhileDecrypting();
    void liveThreadChangeSendsIndex();
    void fullDecryptionAndViews();
    void viewsShowNewest1000Rows();
    void exitCodes_data();
    void exitCodes(); // last: leaving the event loop ends the window

private:
    template <typename T> T *child(const char *name) { return window->findChild<T *>(QLatin1String(name)); }
    bool dragOnTable(const QList<QUrl> &urls, bool drop);
    void runBatchWithoutWindow(const QStringList &paths);
    QString path(const char *name) const { return dir.path() + QLatin1Char('/') + QLatin1String(name); }

    QTemporaryDir dir;
    std::unique_ptr<MainWindow> window;
};

void MainWindowTest::initTestCase()
{
    QVERIFY(dir.isValid());
    useSettingsIn(path("settings"));
}

void MainWindowTest::init()
{
    window.reset();
    QVERIFY(DecryptManager::instance()->clearAll());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    window.reset(new MainWindow);
    window->show();
    QApplication::setActiveWindow(window.get()); // the offscreen platform activates nothing itself
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
}

void MainWindowTest::widgetsAndActions_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("shortcut"); // actions: "-" stays on while decrypting
    for (auto w : {"_phraseTxt Nmb::Gui::NmQLineEdit", "_decryptBtn QPushButton", "_showPassCheck QCheckBox",
                   "_progressBar QProgressBar", "_viewComboBox QComboBox", "_messagesTbl QTableWidget",
                   "toolBar QToolBar", "menuCommands QMenu", "actionExit QAction -", "actionAbout QAction -",
                   "actionOpenFiles QAction Alt+O", "actionOpenFolder QAction Alt+F",
                   "actionReloadFailed QAction Alt+1", "actionClearFinished QAction Alt+2",
                   "actionClearFailed QAction Alt+3", "actionClearPending QAction Alt+4",
                   "actionClearAll QAction Alt+5", "actionDeleteEncrypted QAction Alt+D",
                   "actionSettings QAction Alt+S"}) {
        const QStringList f = QString(w).split(' ');
        QTest::newRow(w) << f.value(1) << f.value(2);
    }
}

void MainWindowTest::widgetsAndActions()
{
    QFETCH(QString, className);
    QFETCH(QString, shortcut);
    QObject *object = window->findChild<QObject *>(QString(QTest::currentDataTag()).section(' ', 0, 0));
    QVERIFY(object);
    QCOMPARE(QString(object->metaObject()->className()), className);
    auto *action = qobject_cast<QAction *>(object);
    if (!action)
        return;
    const bool stays = shortcut == "-";
    QCOMPARE(action->shortcut(), QKeySequence(stays ? QString() : shortcut));
    auto *button = child<QPushButton>("_decryptBtn");
    button->setEnabled(true);
    button->setChecked(true);
    QCOMPARE(action->isEnabled(), stays);
    button->setChecked(false);
    QVERIFY(action->isEnabled());
}

// Sends a drag (and, when it is accepted and drop is set, the drop) to the
// table, where a user's drag arrives; returns whether the drag was accepted.
bool MainWindowTest::dragOnTable(const QList<QUrl> &urls, bool drop)
{
    QMimeData data;
    if (urls.isEmpty())
        data.setText(QStringLiteral("not a file"));
    else
        data.setUrls(urls);
    QWidget *viewport = child<QTableWidget>("_messagesTbl")->viewport();
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewport, &enter);
    if (enter.isAccepted() && drop) {
        QDropEvent event(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(viewport, &event);
    }
    return enter.isAccepted();
}

void MainWindowTest::dragRefusedWhileDecrypting()
{
    auto *button = child<QPushButton>("_decryptBtn");
    button->setEnabled(true);
    QVERIFY(!dragOnTable({}, false)); // text, no files
    QVERIFY(dragOnTable({QUrl::fromLocalFile(path("nothing"))}, false));
    button->setChecked(true);
    QVERIFY(!dragOnTable({QUrl::fromLocalFile(path("nothing"))}, false));
    button->setChecked(false);
}

void MainWindowTest::liveThreadChangeSendsIndex()
{
    // The live change passes the combo index, not the count it shows.
    auto *combo = SettingsDialog::instance()->findChild<QComboBox *>("_threadsCombo");
    for (int index : {3, 2, 0}) {
        combo->setCurrentIndex(index);
        QCOMPARE(DecryptManager::instance()->threadsInUse(), qMax(index, 1));
    }
}

void MainWindowTest::fullDecryptionAndViews()
{
    const QString folder = path("batch");
    for (int i = 1; i <= 3; ++i)
        QVERIFY(writeEnvelope(folder + QString("/doc%1.txt.nimbra-env").arg(i), "secret " + QByteArray::number(i), kPassphrase));
    QVERIFY(writeEnvelope(folder + "/other.txt.nimbra-env", "not for us", "another passphrase"));
    DecryptManager *manager = DecryptManager::instance();
    QVERIFY(dragOnTable({QUrl::fromLocalFile(folder)}, true));
    QTRY_COMPARE_WITH_TIMEOUT(manager->pendingCount(), 4, kWait);
    auto *button = child<QPushButton>("_decryptBtn");
    QTRY_VERIFY(button->isEnabled() && !BusyDialog::instance()->isVisible());

    QApplication::setActiveWindow(window.get()); // offscreen: nothing re-activates the window
    QTest::keyClicks(child<QLineEdit>("_phraseTxt"), kPassphrase);
    QuestionAnswerer answerer(QMessageBox::Cancel);
    QTest::keyClick(child<QLineEdit>("_phraseTxt"), Qt::Key_Return); // the button's shortcut
    QTRY_VERIFY_WITH_TIMEOUT(!button->isEnabled() && manager->pendingCount() == 0, kWait);
    QCOMPARE(answerer.questions, QStringList{"1 task has failed. Do you want to reload?"});
    QVERIFY(!button->isChecked());
    QCOMPARE(child<QProgressBar>("_progressBar")->value(), child<QProgressBar>("_progressBar")->maximum());
    QCOMPARE(child<QLabel>("_progressLbl")->text(), QStringLiteral("100%"));
    QCOMPARE(child<QStatusBar>("statusBar")->findChild<QLabel *>()->text(),
             QStringLiteral("   3 finished, 1 failed, 0 pending, 4 total"));
    QFile output(folder + "/doc2.txt");
    QVERIFY(output.open(QIODevice::ReadOnly));
    QCOMPARE(output.readAll(), QByteArray("secret 2"));

    auto *table = child<QTableWidget>("_messagesTbl");
    const struct { int view; int rows; QColor colour; } views[] = {
        {1, 3, QColor("green")}, {2, 1, QColor(146, 4, 4)}, {0, 4, QColor()}};
    for (const auto &v : views) {
        child<QComboBox>("_viewComboBox")->setCurrentIndex(v.view);
        QCOMPARE(table->rowCount(), v.rows);
        for (int row = 0; row < table->rowCount() && v.colour.isValid(); ++row)
            QCOMPARE(table->item(row, 2)->foreground().color(), v.colour);
    }
}

void MainWindowTest::runBatchWithoutWindow(const QStringList &paths)
{
    window.reset();
    DecryptManager *manager = DecryptManager::instance();
    QSignalSpy finished(manager, &DecryptManager::allFinished);
    QCOMPARE(manager->addFiles(paths), paths.size());
    manager->start(kPassphrase);
    QTRY_VERIFY_WITH_TIMEOUT(finished.count() > 0 && manager->pendingCount() == 0 && !manager->isBusy(), kWait);
}

void MainWindowTest::viewsShowNewest1000Rows()
{
    QStringList missing;
    for (int i = 0; i < 1003; ++i)
        missing << path("missing/") + QString("%1.nimbra-env").arg(i, 4, 10, QLatin1Char('0'));
    runBatchWithoutWindow(missing);
    window.reset(new MainWindow);
    auto *table = child<QTableWidget>("_messagesTbl");
    for (int view : {2, 0}) {
        child<QComboBox>("_viewComboBox")->setCurrentIndex(view);
        QCOMPARE(table->rowCount(), 1000);
        QCOMPARE(table->item(0, 0)->text(), QStringLiteral("0003.nimbra-env"));
        QCOMPARE(table->item(999, 0)->text(), QStringLiteral("1002.nimbra-env"));
    }
}

void MainWindowTest::exitCodes_data()
{
    QTest::addColumn<bool>("failed");
    QTest::addColumn<bool>("pending");
    QTest::addColumn<int>("code"); // pending tasks make Exit ask first
    QTest::newRow("nothing left") << false << false << 0;
    QTest::newRow("failed") << true << false << -2;
    QTest::newRow("pending") << false << true << -3;
    QTest::newRow("failed and pending") << true << true << -4;
}

void MainWindowTest::exitCodes()
{
    QFETCH(bool, failed);
    QFETCH(bool, pending);
    QFETCH(int, code);
    if (failed)
        runBatchWithoutWindow({path("missing/exit.nimbra-env")});
    if (pending)
        DecryptManager::instance()->addFiles({path("never-started.nimbra-env")});
    window.reset(new MainWindow);
    QuestionAnswerer answerer(QMessageBox::Ok);
    QTimer::singleShot(0, window.get(), [this] { child<QAction>("actionExit")->trigger(); });
    QCOMPARE(QApplication::exec(), code);
    QCOMPARE(answerer.questions.size(), int(pending));
}

// The window reads the process's command line: it gets none, whatever
// arguments select the test functions.
int main(int argc, char **argv)
{
    int appArgc = 1;
    Application app(appArgc, argv);
    MainWindowTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "MainWindowTest.moc"

// The main window driven like a user would, against the real engine and
// real envelopes in a temporary folder.
#include "Application.h"
#include "BusyDialog.h"
#include "SettingsDialog.h"
#include "GuiTestSupport.h"
#include "MainWindow.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include <QMimeData>
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
    void decryptingDisablesNineActions_data();
    void decryptingDisablesNineActions();
    void dropRefusedWhileDecrypting_data();
    void dropRefusedWhileDecrypting();
    void threadComboReachesDecryptManager_data();
    void threadComboReachesDecryptManager();
    void fileOpenEventLoadsEnvelopesOnly_data();
    void fileOpenEventLoadsEnvelopesOnly();
    void statusLine_data();
    void statusLine();
    void fullDecryptionAndViews();
    void latestViewKeepsNewest1000Rows();
    void exitCodes_data();
    void exitCodes(); // last: leaving the event loop ends the window

private:
    template <typename T> T *child(const char *name) { return window->findChild<T *>(QLatin1String(name)); }
    void drop(const QList<QUrl> &urls);
    void runBatchWithoutWindow(const QStringList &paths);

    QTemporaryDir dir;
    std::unique_ptr<MainWindow> window;
};

void MainWindowTest::initTestCase()
{
    QVERIFY(dir.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path() + "/settings");
    QCoreApplication::setOrganizationName(QStringLiteral("Nimbra"));
    QCoreApplication::setApplicationName(QStringLiteral("Orn Nimbra Crypt"));
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

void MainWindowTest::decryptingDisablesNineActions_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("shortcut");
    QTest::addColumn<bool>("disabledWhileDecrypting");

    QTest::newRow("Exit") << "actionExit" << "" << false;
    QTest::newRow("About") << "actionAbout" << "" << false;
    QTest::newRow("Open Files") << "actionOpenFiles" << "Alt+O" << true;
    QTest::newRow("Open Folder") << "actionOpenFolder" << "Alt+F" << true;
    QTest::newRow("Reload Failed") << "actionReloadFailed" << "Alt+1" << true;
    QTest::newRow("Clear Finished") << "actionClearFinished" << "Alt+2" << true;
    QTest::newRow("Clear Failed") << "actionClearFailed" << "Alt+3" << true;
    QTest::newRow("Clear Pending") << "actionClearPending" << "Alt+4" << true;
    QTest::newRow("Clear All") << "actionClearAll" << "Alt+5" << true;
    QTest::newRow("Delete Encrypted") << "actionDeleteEncrypted" << "Alt+D" << true;
    QTest::newRow("Settings") << "actionSettings" << "Alt+S" << true;
}

void MainWindowTest::decryptingDisablesNineActions()
{
    QFETCH(QString, action);
    QFETCH(QString, shortcut);
    QFETCH(bool, disabledWhileDecrypting);
    auto *a = window->findChild<QAction *>(action);
    QVERIFY(a);
    QCOMPARE(a->shortcut(), QKeySequence(shortcut));

    auto *button = child<QPushButton>("_decryptBtn");
    button->setEnabled(true);
    button->setChecked(true);
    QCOMPARE(a->isEnabled(), !disabledWhileDecrypting);
    button->setChecked(false);
    QVERIFY(a->isEnabled());
}

void MainWindowTest::drop(const QList<QUrl> &urls)
{
    QMimeData data;
    data.setUrls(urls);
    QWidget *viewport = child<QTableWidget>("_messagesTbl")->viewport();
    // Qt delivers a drop only to the widget that accepted the drag's entry.
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewport, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent event(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewport, &event);
}

void MainWindowTest::dropRefusedWhileDecrypting_data()
{
    QTest::addColumn<bool>("decrypting");
    QTest::addColumn<bool>("urls");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("files while idle") << false << true << true;
    QTest::newRow("files while decrypting") << true << true << false;
    QTest::newRow("plain text") << false << false << false;
}

void MainWindowTest::dropRefusedWhileDecrypting()
{
    QFETCH(bool, decrypting);
    QFETCH(bool, urls);
    QFETCH(bool, accepted);
    auto *button = child<QPushButton>("_decryptBtn");
    button->setEnabled(true);
    button->setChecked(decrypting);

    QMimeData data;
    if (urls)
        data.setUrls({QUrl::fromLocalFile(dir.path())});
    else
        data.setText(QStringLiteral("not a file"));
    QDragEnterEvent event(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(child<QTableWidget>("_messagesTbl")->viewport(), &event);
    QCOMPARE(event.isAccepted(), accepted);
    button->setChecked(false);
}

void MainWindowTest::threadComboReachesDecryptManager_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("threads");
    // The live change passes the combo index, not the count it shows.
    QTest::newRow("8 shown") << 3 << 3;
    QTest::newRow("4 shown") << 2 << 2;
    QTest::newRow("1 shown") << 0 << 1;
}

void MainWindowTest::threadComboReachesDecryptManager()
{
    QFETCH(int, index);
    QFETCH(int, threads);
    SettingsDialog::instance()->findChild<QComboBox *>("_threadsCombo")->setCurrentIndex(index);
    QCOMPARE(DecryptManager::instance()->threadsInUse(), threads);
    SettingsDialog::instance()->findChild<QComboBox *>("_threadsCombo")->setCurrentIndex(0);
}

void MainWindowTest::fileOpenEventLoadsEnvelopesOnly_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("handled");
    QTest::addColumn<int>("pending");
    QTest::newRow("envelope") << "open/a.nimbra-env" << true << 1;
    QTest::newRow("plain file") << "open/plain.txt" << true << 0;
    QTest::newRow("no path") << "" << false << 0;
}

void MainWindowTest::fileOpenEventLoadsEnvelopesOnly()
{
    QFETCH(QString, name);
    QFETCH(bool, handled);
    QFETCH(int, pending);
    QVERIFY(writeEnvelope(dir.path() + "/open/a.nimbra-env", "a", kPassphrase));
    QVERIFY(writePlainFile(dir.path() + "/open/plain.txt", "plain"));

    QFileOpenEvent event(name.isEmpty() ? QString() : dir.path() + '/' + name);
    QCOMPARE(QApplication::sendEvent(qApp, &event), handled);
    QTRY_VERIFY_WITH_TIMEOUT(!TaskManager::instance()->isRunning() && !BusyDialog::instance()->isVisible(), kWait);
    QCOMPARE(DecryptManager::instance()->pendingCount(), pending);
}

void MainWindowTest::statusLine_data()
{
    QTest::addColumn<bool>("persist");
    QTest::newRow("passing message") << false;
    QTest::newRow("persistent message") << true;
}

void MainWindowTest::statusLine()
{
    QFETCH(bool, persist);
    QVERIFY(QMetaObject::invokeMethod(window.get(), "onStatusMessage", Q_ARG(QString, "Hello"),
                                      Q_ARG(bool, persist)));
    auto *label = child<QStatusBar>("statusBar")->findChild<QLabel *>();
    QCOMPARE(label->text(), QStringLiteral("   Hello"));
    auto timers = window->findChildren<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    const bool running = std::any_of(timers.begin(), timers.end(),
                                     [](QTimer *t) { return t->interval() == 5000 && t->isActive(); });
    QCOMPARE(running, !persist);

    QVERIFY(QMetaObject::invokeMethod(window.get(), "onTimeout"));
    QCOMPARE(label->text(), QStringLiteral("   0 finished, 0 failed, 0 pending, 0 total"));
}

void MainWindowTest::fullDecryptionAndViews()
{
    const QString folder = dir.path() + "/batch";
    for (int i = 1; i <= 3; ++i)
        QVERIFY(writeEnvelope(folder + QString("/doc%1.txt.nimbra-env").arg(i), "secret " + QByteArray::number(i), kPassphrase));
    QVERIFY(writeEnvelope(folder + "/other.txt.nimbra-env", "not for us", "another passphrase"));
    DecryptManager *manager = DecryptManager::instance();

    drop({QUrl::fromLocalFile(folder)});
    QTRY_COMPARE_WITH_TIMEOUT(manager->pendingCount(), 4, kWait);
    auto *button = child<QPushButton>("_decryptBtn");
    QTRY_VERIFY(button->isEnabled());

    QTRY_VERIFY(!BusyDialog::instance()->isVisible());
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
    auto *view = child<QComboBox>("_viewComboBox");
    const struct { int view; int rows; QColor colour; } views[] = {
        {1, 3, QColor("green")}, {2, 1, QColor(146, 4, 4)}, {0, 4, QColor()}};
    for (const auto &v : views) {
        view->setCurrentIndex(v.view);
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

void MainWindowTest::latestViewKeepsNewest1000Rows()
{
    QStringList missing;
    for (int i = 0; i < 1003; ++i)
        missing << dir.path() + QString("/missing/%1.nimbra-env").arg(i, 4, 10, QLatin1Char('0'));
    runBatchWithoutWindow(missing);
    QCOMPARE(DecryptManager::instance()->failedCount(), 1003);

    window.reset(new MainWindow);
    auto *table = child<QTableWidget>("_messagesTbl");
    QCOMPARE(table->rowCount(), 1000);
    QCOMPARE(table->item(0, 0)->text(), QStringLiteral("0003.nimbra-env"));
    QCOMPARE(table->item(999, 0)->text(), QStringLiteral("1002.nimbra-env"));
}

void MainWindowTest::exitCodes_data()
{
    QTest::addColumn<bool>("failed");
    QTest::addColumn<bool>("pending");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("questions");
    QTest::newRow("nothing left") << false << false << 0 << 0;
    QTest::newRow("failed") << true << false << -2 << 0;
    QTest::newRow("pending") << false << true << -3 << 1;
    QTest::newRow("failed and pending") << true << true << -4 << 1;
}

void MainWindowTest::exitCodes()
{
    QFETCH(bool, failed);
    QFETCH(bool, pending);
    QFETCH(int, code);
    QFETCH(int, questions);
    if (failed)
        runBatchWithoutWindow({dir.path() + "/missing/exit.nimbra-env"});
    if (pending)
        DecryptManager::instance()->addFiles({dir.path() + "/never-started.nimbra-env"});
    window.reset(new MainWindow);

    QuestionAnswerer answerer(QMessageBox::Ok);
    QTimer::singleShot(0, window.get(), [this] { child<QAction>("actionExit")->trigger(); });
    QCOMPARE(QApplication::exec(), code);
    QCOMPARE(answerer.questions.size(), questions);
}

// The window reads the process's command line: it gets none, whatever
// arguments select the test functions.
int main(int argc, char **argv)
{
    int appArgc = 1;
    Application app(appArgc, argv);
    app.setAttribute(Qt::AA_Use96Dpi, true);
    MainWindowTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "MainWindowTest.moc"

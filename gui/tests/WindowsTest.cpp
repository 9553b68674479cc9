// The windows driven like a user would, against the real engine, real
// envelopes and a real settings file in a temporary folder.
#include "AccessChecks.h"
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

class WindowsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void widgetsAndActions_data();
    void widgetsAndActions();
    void settingsDialog_data();
    void settingsDialog();
    void busyDialog_data();
    void busyDialog();
    void fullDecryptionAndViews();
    void viewsShowNewest1000Rows();
    void exitCodes_data();
    void exitCodes(); // last: leaving the event loop ends the window

private:
    template <typename T> T *child(const char *name, QObject *in = nullptr) { return (in ? in : window.get())->findChild<T *>(QLatin1String(name)); }
    bool dragOnTable(const QString &text, bool drop = false);
    void runBatchBeforeWindow(const QStringList &paths);
    QString path(const QString &name) const { return dir.path() + QLatin1Char('/') + name; }

    QTemporaryDir dir;
    std::unique_ptr<MainWindow> window;
};

void WindowsTest::initTestCase()
{
    QVERIFY(dir.isValid());
    useSettingsIn(path("settings"));
}

void WindowsTest::init()
{
    window.reset();
    QVERIFY(DecryptManager::instance()->clearAll());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    window.reset(new MainWindow);
    window->show();
    QApplication::setActiveWindow(window.get()); // the offscreen platform activates nothing itself
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
}

void WindowsTest::widgetsAndActions_data()
{
    QTest::addColumn<QString>("shortcut"); // actions: "-" stays on while decrypting
    for (auto w : {"_phraseTxt Nmb::Gui::NmQLineEdit", "_decryptBtn QPushButton", "_showPassCheck QCheckBox",
                   "_progressBar QProgressBar", "_viewComboBox QComboBox", "_messagesTbl QTableWidget",
                   "toolBar QToolBar", "menuCommands QMenu", "actionExit QAction -", "actionAbout QAction -",
                   "actionOpenFiles QAction Alt+O", "actionOpenFolder QAction Alt+F",
                   "actionReloadFailed QAction Alt+1", "actionClearFinished QAction Alt+2",
                   "actionClearFailed QAction Alt+3", "actionClearPending QAction Alt+4",
                   "actionClearAll QAction Alt+5", "actionDeleteEncrypted QAction Alt+D",
                   "actionSettings QAction Alt+S"})
        QTest::newRow(w) << QString(w).section(' ', 2);
}

// Each row also presses the decrypt button: while it is down only the "-"
// actions stay on, and the table refuses dropped files.
void WindowsTest::widgetsAndActions()
{
    QFETCH(QString, shortcut);
    const QString tag = QTest::currentDataTag();
    QObject *object = window->findChild<QObject *>(tag.section(' ', 0, 0));
    QCOMPARE(object ? QString(object->metaObject()->className()) : QString(), tag.section(' ', 1, 1));
    auto *action = qobject_cast<QAction *>(object);
    if (action)
        QCOMPARE(action->shortcut(), QKeySequence(shortcut == "-" ? QString() : shortcut));
    child<QPushButton>("_decryptBtn")->setEnabled(true);
    for (bool decrypting : {true, false}) {
        child<QPushButton>("_decryptBtn")->setChecked(decrypting);
        if (action)
            QCOMPARE(action->isEnabled(), !decrypting || shortcut == "-");
        else if (object == child<QTableWidget>("_messagesTbl"))
            QCOMPARE(dragOnTable(path("nothing")), !decrypting);
    }
}

// Sends a drag of a file, or of plain text when text is no absolute path, to
// the table, where a user's drag arrives, and the drop when the drag is
// accepted and drop is set; returns whether the drag was accepted.
bool WindowsTest::dragOnTable(const QString &text, bool drop)
{
    QMimeData data;
    data.setData(QDir::isAbsolutePath(text) ? "text/uri-list" : "text/plain", QUrl::fromLocalFile(text).toEncoded());
    QWidget *viewport = child<QTableWidget>("_messagesTbl")->viewport();
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewport, &enter);
    QDropEvent event(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    if (enter.isAccepted() && drop)
        QApplication::sendEvent(viewport, &event);
    return enter.isAccepted();
}

void WindowsTest::settingsDialog_data()
{
    QTest::addColumn<bool>("saved");
    QTest::newRow("ok") << true;
    QTest::newRow("cancel") << false;
    QTest::newRow("escape") << false;
    QTest::newRow("close") << false;
}

void WindowsTest::settingsDialog()
{
    QFETCH(bool, saved);
    const QString way = QTest::currentDataTag();
    const auto stored = [] { return QVariantList{QSettings().value("settings/threadIndex"), QSettings().value("settings/deleteEncrypted")}; };
    QSettings().setValue("settings/threadIndex", 3); // 8 threads
    QSettings().setValue("settings/deleteEncrypted", true);
    SettingsDialog dialog;
    // The combo is refilled after loading, so it starts at "1"; opening writes what it shows.
    QVERIFY(dialog.deleteEncrypted() && dialog.numThreads() == 1);
    dialog.show();
    QCOMPARE(stored(), (QVariantList{0, true}));
    child<QComboBox>("_threadsCombo", &dialog)->setCurrentIndex(2);
    child<QCheckBox>("_deleteEncryptedCheck", &dialog)->setChecked(false);
    if (way == "ok" || way == "cancel")
        child<QDialogButtonBox>("buttonBox", &dialog)->button(saved ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel)->click();
    else if (way == "escape")
        QTest::keyClick(&dialog, Qt::Key_Escape);
    else
        dialog.close();
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.numThreads(), saved ? 4 : 1);
    QCOMPARE(dialog.deleteEncrypted(), !saved);
    QCOMPARE(stored(), (QVariantList{saved ? 2 : 0, !saved}));
    // The window passes a live change on as the combo's index, not the count it shows.
    for (int index : {3, 2, 0}) {
        child<QComboBox>("_threadsCombo", SettingsDialog::instance())->setCurrentIndex(index);
        QCOMPARE(DecryptManager::instance()->threadsInUse(), qMax(index, 1));
    }
}

void WindowsTest::busyDialog_data()
{
    QTest::addColumn<QString>("shown"); // the text, with "+" while the Cancel button shows
    QTest::addColumn<int>("cancelled");
    QTest::newRow("cancel button") << "Loading files...+" << 1;
    QTest::newRow("escape") << "Loading files..." << 1;
    QTest::newRow("finished") << "Loading files...+" << 0;
    // A second announcement while it runs only changes what it shows.
    QTest::newRow("Cancelling...") << "Cancelling..." << 0;
}

void WindowsTest::busyDialog()
{
    QFETCH(QString, shown);
    QFETCH(int, cancelled);
    const QString way = QTest::currentDataTag();
    BusyDialog dialog;
    QSignalSpy spy(&dialog, &BusyDialog::cancelled);
    auto *button = child<QPushButton>("_cancelBtn", &dialog);
    QString seen;
    QTimer::singleShot(0, &dialog, [&] {
        if (way == "Cancelling...")
            dialog.execute(way, false);
        seen = child<QLabel>("_label", &dialog)->text() + (button->isVisible() ? "+" : "");
        if (way == "cancel button")
            QTest::mouseClick(button, Qt::LeftButton);
        else if (way == "escape")
            QTest::keyClick(&dialog, Qt::Key_Escape);
        else
            dialog.accept();
    });
    dialog.execute(QStringLiteral("Loading files..."), way != "escape");
    QCOMPARE(seen, shown);
    QCOMPARE(spy.count(), cancelled);
    QVERIFY(!dialog.isVisible());
}

void WindowsTest::fullDecryptionAndViews()
{
    const QString folder = path("batch");
    const QString named = folder + "/Grüße-日本-😀.txt"; // every text shows it exactly
    for (int i = 1; i <= 3; ++i)
        QVERIFY(writeFile(i == 3 ? named + ".nimbra-env" : folder + QString("/doc%1.txt.nimbra-env").arg(i), "secret " + QByteArray::number(i), kPassphrase));
    QVERIFY(writeFile(folder + "/other.txt.nimbra-env", "not for us", "another passphrase"));
    DecryptManager *manager = DecryptManager::instance();
    QVERIFY(!dragOnTable("not a file"));
    QVERIFY(dragOnTable(folder, true));
    QTRY_COMPARE_WITH_TIMEOUT(manager->pendingCount(), 4, kWait);
    auto *button = child<QPushButton>("_decryptBtn");
    QTRY_VERIFY(button->isEnabled() && !BusyDialog::instance()->isVisible());

    QApplication::setActiveWindow(window.get()); // offscreen: nothing re-activates the window
    QCOMPARE(QApplication::focusWidget(), child<QWidget>("_phraseTxt"));
    QTest::keyClicks(child<QLineEdit>("_phraseTxt"), kPassphrase);
    QuestionAnswerer answerer(QMessageBox::Cancel);
    QTest::keyClick(child<QLineEdit>("_phraseTxt"), Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), button);
    QTest::keyClick(button, Qt::Key_Space);
    QTRY_VERIFY_WITH_TIMEOUT(!button->isEnabled() && manager->pendingCount() == 0, kWait);
    QCOMPARE(window->focusWidget(), child<QWidget>("_phraseTxt")); // ready for the next batch
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
    const QList<QTableWidgetItem *> rows = table->findItems(QFileInfo(named).fileName() + ".nimbra-env", Qt::MatchExactly);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(table->item(rows.first()->row(), 2)->text(), "Finished -> " + named);

    // A failure naming the file, in the status line.
    QVERIFY(QFile::remove(named + ".nimbra-env"));
    StatusLineRecorder recorder;
    answerer.stop();
    QuestionAnswerer yes(QMessageBox::Ok);
    child<QAction>("actionDeleteEncrypted")->trigger();
    QTRY_VERIFY_WITH_TIMEOUT(recorder.texts().contains("   Could not remove file " + named + ".nimbra-env. file does not exist."), kWait);
}

// Decrypts paths with no window open, then opens a fresh one on what is left.
void WindowsTest::runBatchBeforeWindow(const QStringList &paths)
{
    window.reset();
    DecryptManager *manager = DecryptManager::instance();
    QSignalSpy finished(manager, &DecryptManager::allFinished);
    QCOMPARE(manager->addFiles(paths), paths.size());
    manager->start(kPassphrase);
    QTRY_VERIFY_WITH_TIMEOUT(finished.count() > 0 && manager->pendingCount() == 0 && !manager->isBusy(), kWait);
    window.reset(new MainWindow);
}

void WindowsTest::viewsShowNewest1000Rows()
{
    QStringList missing;
    for (int i = 0; i < 1003; ++i)
        missing << path(QString("missing/%1.nimbra-env").arg(i, 4, 10, QLatin1Char('0')));
    runBatchBeforeWindow(missing);
    auto *table = child<QTableWidget>("_messagesTbl");
    for (int view : {2, 0}) {
        child<QComboBox>("_viewComboBox")->setCurrentIndex(view);
        QCOMPARE(table->rowCount(), 1000);
        QCOMPARE(table->item(0, 0)->text(), QStringLiteral("0003.nimbra-env"));
        QCOMPARE(table->item(999, 0)->text(), QStringLiteral("1002.nimbra-env"));
    }
}

void WindowsTest::exitCodes_data()
{
    QTest::addColumn<int>("code"); // the tag names the tasks left; pending ones make Exit ask first
    QTest::newRow("nothing left") << 0;
    QTest::newRow("failed") << -2;
    QTest::newRow("pending") << -3;
    QTest::newRow("failed and pending") << -4;
}

void WindowsTest::exitCodes()
{
    QFETCH(int, code);
    const QString left = QTest::currentDataTag();
    const bool pending = left.contains("pending");
    if (left.contains("failed"))
        runBatchBeforeWindow({path("missing/exit.nimbra-env")});
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
    WindowsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "WindowsTest.moc"
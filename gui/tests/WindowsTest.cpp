// The windows driven like a user would, against the real engine, real
// envelopes and a real settings file in a temporary folder.
#include "AccessChecks.h"
#include "BusyDialog.h"
#include "SettingsDialog.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

namespace {
const int kWait = 60000; // generous for sanitizer builds; never a timing assertion
const QString kPassphrase = QStringLiteral("correct horse");
DecryptManager *manager() { return DecryptManager::instance(); }
} // namespace

class WindowsTest : public QObject, WindowFixture
{
    Q_OBJECT

    // Waits for the list operation and its busy dialog to come and go.
    static void settle()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!TaskManager::instance()->isRunning(), kWait);
        QCoreApplication::processEvents();
    }
    // Decrypts paths with no window open, then opens a fresh one on what is left.
    void runBatchBeforeWindow(const QStringList &paths)
    {
        window.reset();
        QSignalSpy finished(manager(), &DecryptManager::allFinished);
        QCOMPARE(manager()->addFiles(paths), paths.size());
        manager()->start(kPassphrase);
        QTRY_VERIFY_WITH_TIMEOUT(finished.count() > 0 && manager()->pendingCount() == 0 && !manager()->isBusy(), kWait);
        window.reset(new MainWindow);
    }
    // The file names the table shows, without their extensions.
    QStringList rows()
    {
        QStringList names;
        for (int row = 0; row < child<QTableWidget>("_messagesTbl")->rowCount(); ++row)
            names << child<QTableWidget>("_messagesTbl")->item(row, 0)->text().section('.', 0, 0);
        return names;
    }
    // A drag of folder "batch" in format onto the table, dropped if drop and
    // accepted; returns whether it was accepted.
    bool dragOnTable(const QString &format, bool drop = false)
    {
        QMimeData data;
        data.setData(format, QUrl::fromLocalFile(path("batch")).toEncoded());
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QDropEvent dropped(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(child<QTableWidget>("_messagesTbl")->viewport(), &enter);
        if (enter.isAccepted() && drop)
            QApplication::sendEvent(child<QTableWidget>("_messagesTbl")->viewport(), &dropped);
        return enter.isAccepted();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useSettingsIn(path("settings"));
    }

    void init()
    {
        settle();
        window.reset();
        QVERIFY(manager()->clearAll());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        showWindow();
    }

    void actions_data()
    {
        QTest::addColumn<QString>("expected"); // text|tool tip|shortcut|while decrypting|icon in menus
        QTest::newRow("actionExit") << "Exit|Exit||on|icon";
        QTest::newRow("actionOpenFiles") << "Open Files|Select file(s) to decrypt|Alt+O|off|icon";
        QTest::newRow("actionOpenFolder") << "Open Folder|Decrypt all files and folders in selected folder|Alt+F|off|icon";
        QTest::newRow("actionClearAll") << "Clear All|Clear all tasks|Alt+5|off|";
        QTest::newRow("actionDeleteEncrypted") << "Delete Encrypted|Delete encrypted files from finished tasks|Alt+D|off|";
        QTest::newRow("actionClearFinished") << "Clear Finished|Clear finished tasks|Alt+2|off|";
        QTest::newRow("actionClearFailed") << "Clear Failed|Clear failed tasks|Alt+3|off|";
        QTest::newRow("actionClearPending") << "Clear Pending|Clear pending tasks|Alt+4|off|";
        QTest::newRow("actionSettings") << "Settings|Open Settings dialog|Alt+S|off|icon";
        QTest::newRow("actionAbout") << "About...|Open About dialog||on|icon";
        QTest::newRow("actionReloadFailed") << "Reload Failed|Reload failed tasks and resets status to Pending|Alt+1|off|icon";
    }

    void actions()
    {
        QFETCH(QString, expected);
        auto *action = child<QAction>(QTest::currentDataTag());
        auto *button = child<QPushButton>("_decryptBtn");
        button->setEnabled(true);
        button->setChecked(true);
        const QStringList shown{action->text().remove('&'), action->toolTip(), action->shortcut().toString(),
                                action->isEnabled() ? "on" : "off", action->isIconVisibleInMenu() ? "icon" : ""};
        button->setChecked(false);
        QCOMPARE(shown.join('|'), expected);
        QVERIFY(action->isEnabled());
    }

    void menusAndToolBar_data()
    {
        QTest::addColumn<QString>("items"); // "-": a separator
        QTest::newRow("menuBar") << "menuFile menuCommands menuAbout";
        QTest::newRow("menuFile") << "actionOpenFiles actionOpenFolder - actionExit";
        QTest::newRow("menuCommands") << "actionSettings - actionReloadFailed actionClearFinished actionClearFailed actionClearPending actionClearAll - actionDeleteEncrypted";
        QTest::newRow("menuAbout") << "actionAbout";
        QTest::newRow("toolBar") << "actionOpenFiles actionOpenFolder actionSettings";
        QTest::newRow("_phraseTxt") << "actionOpenFiles actionOpenFolder actionSettings actionReloadFailed actionClearFinished actionClearFailed actionClearPending actionClearAll";
    }

    void menusAndToolBar()
    {
        QFETCH(QString, items);
        QStringList names;
        for (QAction *a : child<QWidget>(QTest::currentDataTag())->actions())
            names << (a->isSeparator() ? "-" : a->menu() ? a->menu()->objectName() : a->objectName());
        QCOMPARE(names.join(' '), items);
    }

    void settingsDialog_data()
    {
        QTest::addColumn<bool>("saved");
        for (const char *way : {"ok", "cancel", "escape", "close"})
            QTest::newRow(way) << (way == QByteArray("ok"));
    }

    void settingsDialog()
    {
        QFETCH(bool, saved);
        const auto stored = [] { return QSettings().value("settings/threadIndex").toInt() * 10 + QSettings().value("settings/deleteEncrypted").toInt(); };
        QSettings().setValue("settings/threadIndex", 3); // 8 threads
        QSettings().setValue("settings/deleteEncrypted", true);
        SettingsDialog dialog;
        // The combo is refilled after loading, so it starts at "1"; opening writes what it shows.
        QVERIFY(dialog.deleteEncrypted() && dialog.numThreads() == 1);
        dialog.show();
        QCOMPARE(stored(), 1);
        child<QComboBox>("_threadsCombo", &dialog)->setCurrentIndex(2);
        child<QCheckBox>("_deleteEncryptedCheck", &dialog)->setChecked(false);
        if (tag() == "escape")
            QTest::keyClick(&dialog, Qt::Key_Escape);
        else if (tag() == "close")
            dialog.close();
        else
            child<QDialogButtonBox>("buttonBox", &dialog)->button(saved ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel)->click();
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.numThreads() * 10 + dialog.deleteEncrypted(), saved ? 40 : 11);
        QCOMPARE(stored(), saved ? 20 : 1);
        // The window passes a live change on as the combo's index, not the count it shows.
        for (int index : {3, 2, 0}) {
            child<QComboBox>("_threadsCombo", SettingsDialog::instance())->setCurrentIndex(index);
            QCOMPARE(manager()->threadsInUse(), qMax(index, 1));
        }
    }

    void busyDialog_data()
    {
        QTest::addColumn<QString>("shown"); // the text, with "+" while the Cancel button shows
        QTest::addColumn<int>("cancelled");
        QTest::newRow("cancel button") << "Loading files...+" << 1;
        QTest::newRow("escape") << "Loading files..." << 1;
        QTest::newRow("finished") << "Cancelling..." << 0; // a second announcement only changes the text
    }

    void busyDialog()
    {
        QFETCH(QString, shown);
        QFETCH(int, cancelled);
        BusyDialog dialog;
        QSignalSpy spy(&dialog, &BusyDialog::cancelled);
        auto *button = child<QPushButton>("_cancelBtn", &dialog);
        QString seen;
        QTimer::singleShot(0, &dialog, [&] {
            if (tag() == "finished")
                dialog.execute("Cancelling...", false);
            seen = child<QLabel>("_label", &dialog)->text() + (button->isVisible() ? "+" : "");
            tag() == "escape" ? QTest::keyClick(&dialog, Qt::Key_Escape) : tag() == "finished" ? dialog.accept() : button->click();
        });
        dialog.execute("Loading files...", tag() != "escape");
        QVERIFY(seen == shown && spy.count() == cancelled && !dialog.isVisible());
    }

    void statusLine_data()
    {
        QTest::addColumn<int>("bar"); // of 4
        QTest::addColumn<QString>("shown"); // the bar and its label, which the test empties
        QTest::newRow("message") << 4 << "100%";
        QTest::newRow("persistent message") << 4 << "100%";
        QTest::newRow("files loaded after a run") << 4 << "0%0%";
        QTest::newRow("files loaded during a run") << 3 << "75%";
    }

    // A message gives way to the counts after 5 s unless it persists; files
    // loaded after a finished run reset the bar.
    void statusLine()
    {
        QFETCH(int, bar);
        QFETCH(QString, shown);
        const bool persist = tag().startsWith("persistent");
        child<QProgressBar>("_progressBar")->setMaximum(4);
        child<QProgressBar>("_progressBar")->setValue(bar);
        child<QLabel>("_progressLbl")->clear();
        if (tag().contains("loaded"))
            emit TaskManager::instance()->filesLoaded("2 files loaded.");
        else
            emit TaskManager::instance()->statusMessage("2 files loaded.", persist);
        QTRY_COMPARE(child<QLabel>("_statusLbl")->text(), "   2 files loaded.");
        QCOMPARE(child<QProgressBar>("_progressBar")->text() + child<QLabel>("_progressLbl")->text(), shown);
        auto *timer = window->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
        QCOMPARE(timer->isActive() ? timer->interval() : 0, persist ? 0 : 5000);
        if (timer->isActive())
            QMetaObject::invokeMethod(timer, "timeout"); // as when the 5 s are over
        QCOMPARE(child<QLabel>("_statusLbl")->text(), persist ? "   2 files loaded." : "   0 finished, 0 failed, 0 pending, 0 total");
    }

    void fileDialogs_data()
    {
        QTest::addColumn<bool>("chosen");
        for (const char *row : {"actionOpenFiles", "actionOpenFolder", "actionOpenFiles cancelled", "actionOpenFolder cancelled"})
            QTest::newRow(row) << !QByteArray(row).contains("cancelled");
    }

    // A dialog opens where the last one was left; cancelled, it changes nothing.
    void fileDialogs()
    {
        QFETCH(bool, chosen);
        const QString start = path("start"), picked = path("picked"), action = tag().section(' ', 0, 0);
        QVERIFY(QDir().mkpath(start) && writeFile(picked + "/plain.txt", "taken when picked by hand"));
        QSettings().setValue("FileDialog/currentDir", start);
        window.reset(new MainWindow);
        QString opened;
        QTimer::singleShot(0, window.get(), [&] {
            auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
            opened = dialog->directory().absolutePath();
            dialog->selectFile(action == "actionOpenFiles" ? picked + "/plain.txt" : picked);
            chosen ? static_cast<QDialog *>(dialog)->accept() : dialog->reject();
        });
        child<QAction>(qPrintable(action))->trigger();
        QCOMPARE(opened, start);
        QTRY_COMPARE_WITH_TIMEOUT(manager()->pendingCount(), int(chosen), kWait);
        QCOMPARE(QSettings().value("FileDialog/currentDir").toString(), chosen ? picked : start);
    }

    void commands_data()
    {
        QTest::addColumn<QString>("left"); // finished, failed, pending; the bar; Decrypt; the finished envelope; the rows
        QTest::newRow("actionClearFinished") << "0 1 1 2 on kept: missing stopped";
        QTest::newRow("actionClearFailed") << "1 0 1 2 on kept: ok stopped";
        QTest::newRow("actionClearPending") << "1 1 0 2 idle kept: ok missing";
        QTest::newRow("actionClearAll") << "0 0 0 0 idle kept: ";
        QTest::newRow("actionDeleteEncrypted OK") << "1 1 1 2 on deleted: ok missing stopped";
        QTest::newRow("actionDeleteEncrypted Cancel") << "1 1 1 2 on kept: ok missing stopped";
    }

    // One finished, one failed and one pending task, and the row of a stopped one.
    void commands()
    {
        QFETCH(QString, left);
        const QString d = path(tag()) + '/', action = tag().section(' ', 0, 0);
        QVERIFY(writeFile(d + "ok.nimbra-env", "plain", kPassphrase));
        runBatchBeforeWindow({d + "ok.nimbra-env", d + "missing.nimbra-env"});
        manager()->addFiles({d + "pending.nimbra-env"});
        CryptTask stopped(d + "stopped.nimbra-env", nullptr);
        stopped.setStatus(Task::Cancelled);
        emit manager()->statsChanged(&stopped);
        QTRY_COMPARE(rows().size(), 3);
        child<QProgressBar>("_progressBar")->setMaximum(3);
        child<QProgressBar>("_progressBar")->setValue(2);
        const bool deleting = action == "actionDeleteEncrypted";
        QuestionAnswerer answerer(tag().endsWith("OK") ? QMessageBox::Ok : QMessageBox::Cancel);
        bool again = true; // a second question while one is open is refused
        if (deleting)
            QTimer::singleShot(0, window.get(), [&] { QMetaObject::invokeMethod(window.get(), "showOkCancelBox", Q_RETURN_ARG(bool, again), Q_ARG(QString, "?")); });
        child<QAction>(qPrintable(action))->trigger();
        settle();
        auto *button = child<QPushButton>("_decryptBtn");
        QCOMPARE(QString("%1 %2 %3 %4 %5 %6: ").arg(manager()->finishedCount()).arg(manager()->failedCount()).arg(manager()->pendingCount())
                     .arg(child<QProgressBar>("_progressBar")->value()).arg(button->isEnabled() ? "on" : button->isChecked() ? "checked" : "idle")
                     .arg(QFile::exists(d + "ok.nimbra-env") ? "kept" : "deleted") + rows().join(' '), left);
        QCOMPARE(answerer.questions, deleting ? QStringList{"Do you want to delete encrypted source files from finished tasks?"} : QStringList());
        QCOMPARE(again, !deleting);
    }

    // Drop a folder, type the passphrase, decrypt, stop at once, then decrypt
    // again to the end.
    void decryptStopAndAgain()
    {
        const QString folder = path("batch"), named = folder + "/Grüße-日本-😀.txt"; // every text shows it exactly
        for (const QString &name : {folder + "/doc1.txt", folder + "/doc2.txt", named})
            QVERIFY(writeFile(name + ".nimbra-env", "secret " + name.toUtf8(), kPassphrase));
        QVERIFY(writeFile(folder + "/other.txt.nimbra-env", "not for us", "another passphrase"));
        manager()->onChangeNumThreads(1);
        QVERIFY(!dragOnTable("text/plain"));
        QVERIFY(dragOnTable("text/uri-list", true));
        QTRY_COMPARE_WITH_TIMEOUT(manager()->pendingCount(), 4, kWait);
        auto *button = child<QPushButton>("_decryptBtn");
        QTRY_VERIFY(button->isEnabled() && !BusyDialog::instance()->isVisible());
        QApplication::setActiveWindow(window.get()); // offscreen: nothing re-activates the window
        QuestionAnswerer answerer(QMessageBox::Cancel);
        QSignalSpy finished(manager(), &DecryptManager::allFinished);
        for (int run = 0; run < 2; ++run) {
            QCOMPARE(QApplication::focusWidget(), child<QWidget>("_phraseTxt"));
            QTest::keyClicks(child<QLineEdit>("_phraseTxt"), kPassphrase);
            if (run == 0) { // Tab to the button, Space decrypts, and again stops: at most the first file is done
                QTest::keyClick(child<QLineEdit>("_phraseTxt"), Qt::Key_Tab);
                QCOMPARE(QApplication::focusWidget(), button);
                QTest::keyClick(button, Qt::Key_Space);
                QVERIFY(!dragOnTable("text/uri-list")); // no new files while decrypting
                QTest::keyClick(button, Qt::Key_Space);
            } else { // or Return, right after typing
                QTest::keyClick(child<QLineEdit>("_phraseTxt"), Qt::Key_Return);
            }
            QTRY_VERIFY_WITH_TIMEOUT(finished.count() > run && !manager()->isBusy(), kWait);
            QVERIFY(manager()->pendingCount() >= 3 - 3 * run);
        }
        QTRY_VERIFY_WITH_TIMEOUT(!button->isEnabled() && !button->isChecked(), kWait);
        QCOMPARE(window->focusWidget(), child<QWidget>("_phraseTxt")); // ready for the next batch
        QCOMPARE(answerer.questions.last(), "1 task has failed. Do you want to reload?");
        QCOMPARE(child<QProgressBar>("_progressBar")->text() + child<QLabel>("_progressLbl")->text(), "100%100%");
        QCOMPARE(child<QLabel>("_statusLbl")->text(), "   3 finished, 1 failed, 0 pending, 4 total");
        QFile output(folder + "/doc2.txt");
        QVERIFY(output.open(QIODevice::ReadOnly));
        QCOMPARE(output.readAll(), "secret " + output.fileName().toUtf8());
        QCOMPARE(rows().size(), 4); // a stopped attempt's row went to the file's next run
        auto *table = child<QTableWidget>("_messagesTbl");
        const int row = rows().indexOf(QFileInfo(named).fileName().section('.', 0, 0));
        QCOMPARE(table->item(row, 0)->text() + table->item(row, 2)->text(), QFileInfo(named).fileName() + ".nimbra-envFinished -> " + named);
        // A failure naming the file, in the status line.
        QVERIFY(QFile::remove(named + ".nimbra-env"));
        StatusLineRecorder recorder;
        answerer.button = QMessageBox::Ok;
        child<QAction>("actionDeleteEncrypted")->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(recorder.texts().contains("   Could not remove file " + named + ".nimbra-env. file does not exist."), kWait);
    }

    // Every view shows the newest 1000 of its tasks.
    void viewsShowNewest1000Rows()
    {
        QStringList missing;
        for (int i = 0; i < 1003; ++i)
            missing << path(QString("missing/%1.nimbra-env").arg(i, 4, 10, QLatin1Char('0')));
        runBatchBeforeWindow(missing);
        for (int view : {2, 1, 0}) {
            child<QComboBox>("_viewComboBox")->setCurrentIndex(view);
            QCOMPARE(rows().size() ? rows().first() + rows().last() : "none", view == 1 ? "none" : "00031002");
        }
    }

    void exitCodes_data()
    {
        QTest::addColumn<int>("code"); // the tag names the tasks left; pending ones make it ask
        QTest::addColumn<bool>("close"); // the title bar's close button rather than Exit
        QTest::newRow("nothing left") << 0 << false;
        QTest::newRow("failed") << -2 << true;
        QTest::newRow("pending") << -3 << true;
        QTest::newRow("failed and pending") << -4 << false;
    }

    // Last: leaving the event loop ends the window. Each row leaves twice: a
    // question is declined first, then accepted.
    void exitCodes()
    {
        QFETCH(int, code);
        QFETCH(bool, close);
        const bool pending = tag().contains("pending");
        if (tag().contains("failed"))
            runBatchBeforeWindow({path("missing/exit.nimbra-env")});
        if (pending)
            manager()->addFiles({path("never-started.nimbra-env")});
        showWindow();
        QuestionAnswerer answerer(QMessageBox::Cancel);
        QTimer::singleShot(0, window.get(), [&] {
            for (auto answer : {QMessageBox::Cancel, QMessageBox::Ok}) {
                answerer.button = answer;
                close ? void(window->close()) : child<QAction>("actionExit")->trigger();
            }
        });
        QTimer stuck; // a close that ran no Exit would leave the loop running
        connect(&stuck, &QTimer::timeout, [] { QCoreApplication::exit(1); });
        stuck.start(kWait);
        QCOMPARE(QApplication::exec(), code);
        const QString question = "There are current tasks. Do you want to exit?";
        QCOMPARE(answerer.questions, pending ? (QStringList{question, question}) : QStringList());
    }
};

NM_WINDOW_TEST_MAIN(WindowsTest)
#include "WindowsTest.moc"

// The main window and its dialogs used without a mouse, through a screen
// reader's eyes, on light and dark palettes and in the language of the
// system (run again with LC_ALL=de_DE.UTF-8); the task table's rows as tasks
// come, run again and go.
#include "AboutWindow.h"
#include "AccessChecks.h"
#include "BatchNotifier.h"
#include "BusyDialog.h"
#include "Readability.h"
#include "SettingsDialog.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

class AccessTest : public QObject, WindowFixture
{
    Q_OBJECT
    std::vector<std::unique_ptr<CryptTask>> tasks;

    // A task shown through the engine's own signal, as the window gets it.
    CryptTask *showTask(const QString &name, Task::STATUS status, float progress = 1.0f)
    {
        tasks.emplace_back(new CryptTask(dir.path() + '/' + name, nullptr));
        tasks.back()->setStatus(status);
        tasks.back()->setProgress(progress);
        emit DecryptManager::instance()->statsChanged(tasks.back().get());
        QCoreApplication::processEvents();
        return tasks.back().get();
    }
    // A key press where a person's goes: to the widget with the focus.
    static void press(int key) { QTest::keyClick(QApplication::focusWidget(), Qt::Key(key)); }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useSettingsIn(dir.path());
    }

    void init()
    {
        tasks.clear();
        showWindow();
        AboutWindow::instance(); // made after the window's strings, as in the program
    }

    void visibleTexts_data()
    {
        QTest::addColumn<QString>("english"); // the tag: object.property, "running" while decrypting
        QTest::addColumn<QString>("german");
        QTest::newRow("_decryptBtn.text") << "Decrypt" << "Entschlüsseln";
        QTest::newRow("_decryptBtn.toolTip") << "" << "";
        QTest::newRow("_decryptBtn.text running") << "Stop" << "Stopp";
        QTest::newRow("_decryptBtn.toolTip running") << "Stops decrypting: files in progress are cancelled and stay pending"
                                                     << "Beendet das Entschlüsseln: laufende Dateien werden abgebrochen und bleiben ausstehend";
        QTest::newRow("_decryptBtn.shortcut running") << "Return" << "Return";
        QTest::newRow("actionOpenFiles.toolTip") << "Select file(s) to decrypt" << "Datei(en) zum Entschlüsseln auswählen";
        QTest::newRow("_statusLbl.text") << "   Drag files and folders to start decrypting..." << "   Zum Entschlüsseln Dateien und Ordner hierher ziehen...";
        QTest::newRow("SettingsDialog.windowTitle") << "Settings" << "Einstellungen";
        QTest::newRow("_label.text") << "Processing..." << "Verarbeitung läuft...";
        QTest::newRow("versionLbl.text") << "Release (4.1.2.91)" << "Version (4.1.2.91)";
    }

    void visibleTexts()
    {
        QFETCH(QString, english);
        QFETCH(QString, german);
        const QString name = tag().section('.', 0, 0);
        child<QPushButton>("_decryptBtn")->setEnabled(true);
        child<QPushButton>("_decryptBtn")->setChecked(tag().endsWith("running"));
        QObject *object = nullptr;
        for (QWidget *top : QApplication::topLevelWidgets())
            object = object ? object : top->objectName() == name ? top : top->findChild<QObject *>(name);
        const QVariant shown = object->property(qPrintable(tag().section('.', 1).section(' ', 0, 0)));
        QCOMPARE(shown.toString(), qgetenv("LC_ALL").startsWith("de") ? german : english);
    }

    // Also run at QT_SCALE_FACTOR 1.5 and 2 and in German: texts keep
    // distinct mnemonics and fit their controls, pictures fill their places.
    void textsFit()
    {
        QVERIFY2(mnemonicProblems(window.get()).isEmpty(), qPrintable(mnemonicProblems(window.get()).join('\n')));
        const QList<QWidget *> windows{window.get(), SettingsDialog::instance(), BusyDialog::instance(), AboutWindow::instance()};
        for (QWidget *w : windows) {
            w->show();
            QVERIFY(QTest::qWaitForWindowExposed(w));
            QVERIFY2(clippedTexts(w).isEmpty(), qPrintable(w->objectName() + ": " + clippedTexts(w).join('\n')));
        }
        const QImage busy = BusyDialog::instance()->findChild<QLabel *>("_animatedLbl")->grab().toImage();
        QVERIFY(busy.pixelColor(busy.width() - 4 * busy.devicePixelRatio(), busy.height() / 2) != busy.pixelColor(0, 0));
        for (QWidget *w : windows.mid(1))
            w->hide();
    }

    void tableScrollsAndFollows()
    {
        auto *table = child<QTableWidget>("_messagesTbl");
        QScrollBar *bar = table->verticalScrollBar();
        for (int i = 0; i < 60; ++i)
            showTask(QString("file %1").arg(i), Task::Finished);
        QVERIFY(bar->maximum() > 0 && bar->value() == bar->maximum());
        QWidget *before = nullptr;
        for (int tabs = 0; tabs < 20 && QApplication::focusWidget() != table; ++tabs) {
            before = QApplication::focusWidget();
            press(Qt::Key_Tab);
        }
        const auto frameShowsFocus = [table] {
            const QImage shot = table->grab().toImage();
            return shot.pixelColor(0, shot.height() / 2) == table->palette().color(QPalette::Highlight);
        };
        QVERIFY(QApplication::focusWidget() == table && frameShowsFocus());
        press(Qt::Key_Home);
        showTask("while reading the top", Task::Finished);
        QCOMPARE(bar->value(), 0); // scrolled away from the end: stays put
        press(Qt::Key_PageDown);
        QVERIFY(bar->value() > 0);
        press(Qt::Key_End);
        const int end = bar->maximum();
        CryptTask *last = showTask("at the end again", Task::Decrypting);
        QTRY_VERIFY(bar->maximum() > end && bar->value() == bar->maximum());
        last->setStatus(Task::Error); // its row grows by a few lines
        last->setErrorMessage(QString(200, 'x').replace("xxxxx", "long "));
        emit DecryptManager::instance()->statsChanged(last);
        QTRY_VERIFY(bar->maximum() > end + 1 && bar->value() == bar->maximum());
        // Tab and Backtab leave the table instead of moving between its cells.
        press(Qt::Key_Backtab);
        QCOMPARE(QApplication::focusWidget(), before);
        press(Qt::Key_Tab);
        press(Qt::Key_Tab);
        QVERIFY(QApplication::focusWidget() != table && QApplication::focusWidget() != before && !frameShowsFocus());
    }

    // Walks the accessibility tree of every window as a screen reader does.
    void everyFocusableControlHasAName()
    {
        showTask("a row", Task::Finished);
        QWidget *root = nullptr;
        QStringList nameless;
        const std::function<void(QAccessibleInterface *)> walk = [&](QAccessibleInterface *iface) {
            auto *widget = qobject_cast<QWidget *>(iface->object());
            if (widget && widget != root && !widget->isVisibleTo(root)) // a closed pop-up, a hidden button
                return;
            // A table tells no focusability of its own; its widget does. A
            // progress bar takes no focus, and is read out all the same.
            const bool focusable = widget ? widget->focusPolicy() & Qt::TabFocus : iface->state().focusable;
            if ((focusable || iface->role() == QAccessible::ProgressBar) && iface->text(QAccessible::Name).trimmed().isEmpty())
                nameless << root->objectName() + '/' + (widget ? widget->objectName() : iface->text(QAccessible::Value));
            for (int i = 0; i < iface->childCount(); ++i)
                if (QAccessibleInterface *child = iface->child(i))
                    walk(child);
        };
        for (QWidget *w : QList<QWidget *>{window.get(), SettingsDialog::instance(), BusyDialog::instance(), AboutWindow::instance()})
            walk(QAccessible::queryAccessibleInterface(root = w));
        QVERIFY2(nameless.isEmpty(), qPrintable(nameless.join(", ")));
        // Status-line changes reach the screen reader.
        StatusLineRecorder recorder;
        emit TaskManager::instance()->statusMessage("4 files loaded.", true);
        QTRY_VERIFY(recorder.texts().contains("   4 files loaded."));
    }

    // A stopped file that runs again keeps one row, and a row goes with its task.
    void oneRowPerTask()
    {
        auto *table = child<QTableWidget>("_messagesTbl");
        const auto shown = [table] {
            QStringList rows;
            for (int row = 0; row < table->rowCount(); ++row)
                rows << table->item(row, 0)->text() + ' ' + table->item(row, 1)->text() + ' ' + table->item(row, 2)->data(Qt::UserRole).toString();
            return rows.join(", ");
        };
        showTask("a", Task::Cancelled, 0.64f);
        showTask("b", Task::Finished);
        showTask("a", Task::Finished);
        QCOMPARE(shown(), "a 100% 1, b 100% 1");
        tasks.erase(tasks.begin()); // the stopped attempt goes
        QCOMPARE(shown(), "a 100% 1, b 100% 1");
        tasks.erase(tasks.begin()); // b goes
        QCOMPARE(shown(), "a 100% 1");
        // Every view switch rebuilds the table, and the task's row comes back
        // with its next report; the window still listens to its end only once.
        CryptTask *running = showTask("c", Task::Decrypting, 0.5f);
        for (int view : {1, 0, 2, 0}) {
            child<QComboBox>("_viewComboBox")->setCurrentIndex(view);
            emit DecryptManager::instance()->statsChanged(running);
            QCoreApplication::processEvents();
        }
        struct Peek : QObject { using QObject::receivers; };
        QCOMPARE((running->*&Peek::receivers)(SIGNAL(destroyed(QObject *))), 1);
        // A new task, maybe at a freed address, still gets exactly one row.
        for (int round = 0; round < 3; ++round) {
            QCOMPARE(shown(), "c 50% 0");
            tasks.clear();
            QCOMPARE(table->rowCount(), 0);
            showTask("c", Task::Decrypting, 0.5f);
        }
    }

    // At least 4.5:1 against both row backgrounds, whatever the palette; a
    // light one keeps the usual colours.
    void rowColoursReadable()
    {
        QPalette dark(QColor(53, 53, 53), QColor(53, 53, 53)), light = QApplication::palette();
        dark.setColor(QPalette::Base, QColor(30, 30, 30));
        const QColor usual[] = {QColor("blue"), QColor("green"), QColor(146, 4, 4), QColor("black")};
        for (const QPalette &palette : {dark, light}) {
            QApplication::setPalette(palette);
            window.reset(new MainWindow);
            for (auto status : {Task::Decrypting, Task::Finished, Task::Error, Task::Cancelled})
                showTask(QString::number(status), status, 0.5f);
            for (int row = 0; row < 4; ++row) {
                const QColor colour = child<QTableWidget>("_messagesTbl")->item(row, 2)->foreground().color();
                for (auto role : {QPalette::Base, QPalette::AlternateBase})
                    QVERIFY(Nmb::Gui::contrastRatio(colour, child<QTableWidget>("_messagesTbl")->palette().color(role)) >= 4.5);
                QVERIFY(palette == dark || colour == usual[row]);
            }
        }
    }

    // A desktop notification when a batch of more than 10 s ends while the
    // person looks at another window.
    void notifiesLongBatchWhenAway()
    {
        const struct { int ranMs; bool away, notified; } cases[] = {{10001, true, true}, {60000, false, false}, {10000, true, false}};
        for (const auto &c : cases) {
            qint64 now = 5000;
            QStringList sent;
            Nmb::Gui::BatchNotifier notifier(window.get(), [&now] { return now; }, [&sent](const QString &title, const QString &text) { sent << title << text; });
            QWidget other;
            other.show();
            QApplication::setActiveWindow(c.away ? &other : static_cast<QWidget *>(window.get()));
            notifier.batchStarted();
            now += c.ranMs;
            QCOMPARE(notifier.batchFinished("   3 finished, 0 failed, 0 pending, 3 total"), c.notified);
            QCOMPARE(sent.join('|'), c.notified ? "Decryption finished|3 finished, 0 failed, 0 pending, 3 total" : "");
        }
    }
};

NM_WINDOW_TEST_MAIN(AccessTest)
#include "AccessTest.moc"

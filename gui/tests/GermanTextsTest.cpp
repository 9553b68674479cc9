// With a German system locale the shipped German strings file replaces the
// English texts of the windows (run with LC_ALL=de_DE.UTF-8).
#include "AboutWindow.h"
#include "AccessChecks.h"
#include "BusyDialog.h"
#include "MainWindow.h"
#include "SettingsDialog.h"

#include <QTemporaryDir>
#include <QtTest>
#include <QtWidgets>

class GermanTextsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void visibleTexts_data();
    void visibleTexts();
    void mnemonicsAndRoom();

private:
    QTemporaryDir dir;
    std::unique_ptr<MainWindow> w;
};

void GermanTextsTest::initTestCase()
{
    QVERIFY(dir.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
    QCOMPARE(QLocale::system().name(), QStringLiteral("de_DE"));
    w.reset(new MainWindow);
}

void GermanTextsTest::visibleTexts_data()
{
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("german");
    QTest::newRow("button") << w->findChild<QPushButton *>("_decryptBtn")->text() << "Entschlüsseln";
    QTest::newRow("tool tip") << w->findChild<QAction *>("actionOpenFiles")->toolTip()
                              << "Datei(en) zum Entschlüsseln auswählen";
    QTest::newRow("status line") << w->findChild<QStatusBar *>()->findChild<QLabel *>()->text()
                                 << "   Zum Entschlüsseln Dateien und Ordner hierher ziehen...";
    QTest::newRow("settings") << SettingsDialog::instance()->windowTitle() << "Einstellungen";
    QTest::newRow("busy") << BusyDialog::instance()->findChild<QLabel *>("_label")->text() << "Verarbeitung läuft...";
    auto *button = w->findChild<QPushButton *>("_decryptBtn");
    button->setEnabled(true);
    button->setChecked(true);
    QTest::newRow("running") << button->text() + ' ' + button->shortcut().toString() << "Stopp Return";
    button->setChecked(false);
    QTest::newRow("idle") << button->text() + ' ' + button->shortcut().toString() << "Entschlüsseln Return";
}

void GermanTextsTest::visibleTexts()
{
    QFETCH(QString, shown);
    QFETCH(QString, german);
    QCOMPARE(shown, german);
}

// The longer German texts keep distinct mnemonics and fit their controls,
// also when run with QT_SCALE_FACTOR set.
void GermanTextsTest::mnemonicsAndRoom()
{
    QVERIFY2(mnemonicProblems(w.get()).isEmpty(), qPrintable(mnemonicProblems(w.get()).join('\n')));
    w->show();
    SettingsDialog::instance()->show();
    BusyDialog::instance()->show();
    AboutWindow::instance()->show();
    for (QWidget *window : std::initializer_list<QWidget *>{w.get(), SettingsDialog::instance(), BusyDialog::instance(), AboutWindow::instance()}) {
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QVERIFY2(clippedTexts(window).isEmpty(), qPrintable(clippedTexts(window).join('\n')));
    }
}

QTEST_MAIN(GermanTextsTest)
#include "GermanTextsTest.moc"

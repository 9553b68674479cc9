// With a German system locale the shipped German strings file replaces the
// English texts of the windows (run with LC_ALL=de_DE.UTF-8).
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
                                 << "   Dateien und Ordner hierher ziehen, um mit dem Entschlüsseln zu beginnen...";
    QTest::newRow("settings") << SettingsDialog::instance()->windowTitle() << "Einstellungen";
    QTest::newRow("busy") << BusyDialog::instance()->findChild<QLabel *>("_label")->text() << "Verarbeitung läuft...";
}

void GermanTextsTest::visibleTexts()
{
    QFETCH(QString, shown);
    QFETCH(QString, german);
    QCOMPARE(shown, german);
}

QTEST_MAIN(GermanTextsTest)
#include "GermanTextsTest.moc"

// The settings dialog against a real settings file (what it loads, with its
// order-of-construction quirks, and what OK, Cancel, closing and opening
// write), the busy dialog's ways out and the About box's version line.
#include "AboutWindow.h"
#include "BusyDialog.h"
#include "SettingsDialog.h"

#include <QTemporaryDir>
#include <QtTest>
#include <QtWidgets>

class DialogsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { QSettings().clear(); }
    void settingsLoad_data();
    void settingsLoad();
    void settingsWaysOut_data();
    void settingsWaysOut();
    void busyWaysOut_data();
    void busyWaysOut();
    void aboutVersion();

private:
    QVariant stored(const char *key) { return QSettings().value(QLatin1String(key)); }

    QTemporaryDir dir;
};

void DialogsTest::initTestCase()
{
    QVERIFY(dir.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
    QCoreApplication::setOrganizationName(QStringLiteral("Nimbra"));
    QCoreApplication::setApplicationName(QStringLiteral("Orn Nimbra Crypt"));
}

void DialogsTest::settingsLoad_data()
{
    QTest::addColumn<QVariant>("deleteEncrypted");
    QTest::addColumn<QVariant>("threadIndex");
    // The combo is refilled after loading, so it always starts at "1".
    QTest::newRow("nothing stored") << QVariant() << QVariant();
    QTest::newRow("8 threads stored") << QVariant() << QVariant(3);
    QTest::newRow("index out of range") << QVariant() << QVariant(7);
    QTest::newRow("delete stored") << QVariant(true) << QVariant(1);
}

void DialogsTest::settingsLoad()
{
    QFETCH(QVariant, deleteEncrypted);
    QFETCH(QVariant, threadIndex);
    if (deleteEncrypted.isValid())
        QSettings().setValue(QStringLiteral("settings/deleteEncrypted"), deleteEncrypted);
    if (threadIndex.isValid())
        QSettings().setValue(QStringLiteral("settings/threadIndex"), threadIndex);
    SettingsDialog dialog;
    QCOMPARE(dialog.deleteEncrypted(), deleteEncrypted.toBool());
    QCOMPARE(dialog.numThreads(), 1);
    dialog.show(); // opening writes what it shows
    QCOMPARE(stored("settings/threadIndex"), QVariant(0));
    QCOMPARE(stored("settings/deleteEncrypted"), QVariant(deleteEncrypted.toBool()));
}

void DialogsTest::settingsWaysOut_data()
{
    QTest::addColumn<bool>("saved");
    QTest::newRow("ok") << true;
    QTest::newRow("cancel") << false;
    QTest::newRow("escape") << false;
    QTest::newRow("close") << false;
}

void DialogsTest::settingsWaysOut()
{
    QFETCH(bool, saved);
    const QString way = QTest::currentDataTag();
    SettingsDialog dialog;
    dialog.show();
    dialog.findChild<QComboBox *>(QStringLiteral("_threadsCombo"))->setCurrentIndex(2);
    dialog.findChild<QCheckBox *>(QStringLiteral("_deleteEncryptedCheck"))->setChecked(true);
    auto *box = dialog.findChild<QDialogButtonBox *>(QStringLiteral("buttonBox"));
    if (way == "ok" || way == "cancel")
        box->button(way == "ok" ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel)->click();
    else if (way == "escape")
        QTest::keyClick(&dialog, Qt::Key_Escape);
    else
        dialog.close();
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.numThreads(), saved ? 4 : 1);
    QCOMPARE(dialog.deleteEncrypted(), saved);
    QCOMPARE(stored("settings/threadIndex"), QVariant(saved ? 2 : 0));
    QCOMPARE(stored("settings/deleteEncrypted"), QVariant(saved));
}

void DialogsTest::busyWaysOut_data()
{
    QTest::addColumn<int>("cancelled");
    QTest::newRow("cancel button") << 1;
    QTest::newRow("escape") << 1;
    QTest::newRow("finished") << 0;
    // A second announcement while it runs only changes what it shows.
    QTest::newRow("Cancelling...") << 0;
}

void DialogsTest::busyWaysOut()
{
    QFETCH(int, cancelled);
    const QString way = QTest::currentDataTag();
    BusyDialog dialog;
    QSignalSpy spy(&dialog, &BusyDialog::cancelled);
    auto *button = dialog.findChild<QPushButton *>(QStringLiteral("_cancelBtn"));
    QString shown;
    QTimer::singleShot(0, &dialog, [&] {
        if (way == "Cancelling...")
            dialog.execute(way, false);
        // The text, with "+" while the Cancel button shows.
        shown = dialog.findChild<QLabel *>(QStringLiteral("_label"))->text() + (button->isVisible() ? "+" : "");
        if (way == "cancel button")
            QTest::mouseClick(button, Qt::LeftButton);
        else if (way == "escape")
            QTest::keyClick(&dialog, Qt::Key_Escape);
        else
            dialog.accept();
    });
    dialog.execute(QStringLiteral("Loading files..."), way != "escape");
    QCOMPARE(shown, way == "Cancelling..." ? way : way == "escape" ? "Loading files..." : "Loading files...+");
    QCOMPARE(spy.count(), cancelled);
    QVERIFY(!dialog.isVisible());
}

void DialogsTest::aboutVersion()
{
    AboutWindow about;
    QCOMPARE(about.findChild<QLabel *>(QStringLiteral("versionLbl"))->text(), QStringLiteral("Release (4.1.2.91)"));
    QCOMPARE(about.windowTitle(), QStringLiteral("About - Orn Nimbra Crypt"));
}

QTEST_MAIN(DialogsTest)
#include "DialogsTest.moc"

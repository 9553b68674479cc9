// The settings dialog against a real settings file in a temporary folder:
// what it loads (with its order-of-construction quirks), what OK, Cancel and
// opening write, and what a live change of the thread combo announces.
#include "SettingsDialog.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <QtWidgets>

class SettingsDialogTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void loadsStoredState_data();
    void loadsStoredState();
    void liveChangeSendsIndex_data();
    void liveChangeSendsIndex();
    void okSavesCancelRestores_data();
    void okSavesCancelRestores();

private:
    QVariant stored(const char *key) { return QSettings().value(QLatin1String(key)); }
    QComboBox *combo(SettingsDialog &d) { return d.findChild<QComboBox *>(QStringLiteral("_threadsCombo")); }
    QCheckBox *check(SettingsDialog &d) { return d.findChild<QCheckBox *>(QStringLiteral("_deleteEncryptedCheck")); }

    QTemporaryDir dir;
};

void SettingsDialogTest::initTestCase()
{
    QVERIFY(dir.isValid());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
    QCoreApplication::setOrganizationName(QStringLiteral("Nimbra"));
    QCoreApplication::setApplicationName(QStringLiteral("Orn Nimbra Crypt"));
}

void SettingsDialogTest::init()
{
    QSettings().clear();
}

void SettingsDialogTest::loadsStoredState_data()
{
    QTest::addColumn<QVariant>("deleteEncrypted");
    QTest::addColumn<QVariant>("threadIndex");
    QTest::addColumn<bool>("checked");
    QTest::addColumn<int>("threads");

    // The combo is refilled after loading, so it always starts at "1".
    QTest::newRow("nothing stored") << QVariant() << QVariant() << false << 1;
    QTest::newRow("8 threads stored") << QVariant() << QVariant(3) << false << 1;
    QTest::newRow("index out of range") << QVariant() << QVariant(7) << false << 1;
    QTest::newRow("delete stored") << QVariant(true) << QVariant(1) << true << 1;
}

void SettingsDialogTest::loadsStoredState()
{
    QFETCH(QVariant, deleteEncrypted);
    QFETCH(QVariant, threadIndex);
    QFETCH(bool, checked);
    QFETCH(int, threads);
    {
        QSettings settings;
        if (deleteEncrypted.isValid())
            settings.setValue(QStringLiteral("settings/deleteEncrypted"), deleteEncrypted);
        if (threadIndex.isValid())
            settings.setValue(QStringLiteral("settings/threadIndex"), threadIndex);
    }
    SettingsDialog dialog;
    QCOMPARE(dialog.deleteEncrypted(), checked);
    QCOMPARE(dialog.numThreads(), threads);
    QCOMPARE(combo(dialog)->count(), 4);

    dialog.show(); // opening writes what it shows
    QCOMPARE(stored("settings/threadIndex").toInt(), 0);
    QCOMPARE(stored("settings/deleteEncrypted").toBool(), checked);
}

void SettingsDialogTest::liveChangeSendsIndex_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("threads");
    QTest::newRow("2") << 1 << 2;
    QTest::newRow("4") << 2 << 4;
    QTest::newRow("8") << 3 << 8;
}

void SettingsDialogTest::liveChangeSendsIndex()
{
    QFETCH(int, index);
    QFETCH(int, threads);
    SettingsDialog dialog;
    QSignalSpy spy(&dialog, &SettingsDialog::numThreadChanged);
    combo(dialog)->setCurrentIndex(index);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toInt(), index);
    QCOMPARE(dialog.numThreads(), threads);
}

void SettingsDialogTest::okSavesCancelRestores_data()
{
    QTest::addColumn<QString>("way");
    QTest::addColumn<bool>("saved");
    QTest::newRow("OK") << "ok" << true;
    QTest::newRow("Cancel") << "cancel" << false;
    QTest::newRow("Escape") << "escape" << false;
}

void SettingsDialogTest::okSavesCancelRestores()
{
    QFETCH(QString, way);
    QFETCH(bool, saved);
    SettingsDialog dialog;
    dialog.show();
    combo(dialog)->setCurrentIndex(2);
    check(dialog)->setChecked(true);

    auto *box = dialog.findChild<QDialogButtonBox *>(QStringLiteral("buttonBox"));
    if (way == QLatin1String("ok"))
        box->button(QDialogButtonBox::Ok)->click();
    else if (way == QLatin1String("cancel"))
        box->button(QDialogButtonBox::Cancel)->click();
    else
        QTest::keyClick(&dialog, Qt::Key_Escape);

    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.numThreads(), saved ? 4 : 1);
    QCOMPARE(dialog.deleteEncrypted(), saved);
    QCOMPARE(stored("settings/threadIndex").toInt(), saved ? 2 : 0);
    QCOMPARE(stored("settings/deleteEncrypted").toBool(), saved);
}

QTEST_MAIN(SettingsDialogTest)
#include "SettingsDialogTest.moc"

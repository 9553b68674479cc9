// The busy dialog's ways out, the About box's texts and colours, and the
// passphrase field's focus handling.
#include "AboutWindow.h"
#include "BusyDialog.h"
#include "NmQLineEdit.h"
#include "Version.h"

#include <QApplication>
#include <QFocusEvent>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>
#include <QtWidgets>

class DialogsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void busyDialogWaysOut_data();
    void busyDialogWaysOut();
    void busyDialogSecondAnnouncementOnlyUpdates();
    void aboutTexts();
    void aboutCopyrightColour_data();
    void aboutCopyrightColour();
    void lineEditFocusKeepsTextAndSelection_data();
    void lineEditFocusKeepsTextAndSelection();
};

void DialogsTest::initTestCase()
{
    QCoreApplication::setApplicationName(QStringLiteral(NM_APPLICATION_NAME));
}

void DialogsTest::busyDialogWaysOut_data()
{
    QTest::addColumn<QString>("way");
    QTest::addColumn<bool>("showCancel");
    QTest::addColumn<int>("cancelled");

    QTest::newRow("cancel button") << "button" << true << 1;
    QTest::newRow("escape without cancel button") << "escape" << false << 1;
    QTest::newRow("close button") << "close" << true << 1;
    QTest::newRow("operation ended") << "accept" << true << 0;
}

void DialogsTest::busyDialogWaysOut()
{
    QFETCH(QString, way);
    QFETCH(bool, showCancel);
    QFETCH(int, cancelled);

    BusyDialog dialog;
    QSignalSpy spy(&dialog, &BusyDialog::cancelled);
    QString shownText;
    bool buttonShown = !showCancel;
    QTimer::singleShot(0, &dialog, [&] {
        shownText = dialog.findChild<QLabel *>(QStringLiteral("_label"))->text();
        auto *button = dialog.findChild<QPushButton *>(QStringLiteral("_cancelBtn"));
        buttonShown = button->isVisible();
        if (way == QLatin1String("button"))
            QTest::mouseClick(button, Qt::LeftButton);
        else if (way == QLatin1String("escape"))
            QTest::keyClick(&dialog, Qt::Key_Escape);
        else if (way == QLatin1String("close"))
            dialog.close();
        else
            dialog.accept();
    });
    dialog.execute(QStringLiteral("Loading files..."), showCancel);

    QCOMPARE(shownText, QStringLiteral("Loading files..."));
    QCOMPARE(buttonShown, showCancel);
    QCOMPARE(spy.count(), cancelled);
    QVERIFY(!dialog.isVisible());
}

void DialogsTest::busyDialogSecondAnnouncementOnlyUpdates()
{
    BusyDialog dialog;
    QString textAfter;
    bool buttonAfter = true;
    QTimer::singleShot(0, &dialog, [&] {
        dialog.execute(QStringLiteral("Cancelling..."), false);
        textAfter = dialog.findChild<QLabel *>(QStringLiteral("_label"))->text();
        buttonAfter = dialog.findChild<QPushButton *>(QStringLiteral("_cancelBtn"))->isVisible();
        dialog.accept();
    });
    dialog.execute(QStringLiteral("Loading files..."), true);
    QCOMPARE(textAfter, QStringLiteral("Cancelling..."));
    QVERIFY(!buttonAfter);
}

void DialogsTest::aboutTexts()
{
    AboutWindow about;
    QCOMPARE(about.findChild<QLabel *>(QStringLiteral("versionLbl"))->text(),
             QStringLiteral("Release (4.1.2.91)"));
    QCOMPARE(about.windowTitle(), QStringLiteral("About - Orn Nimbra Crypt"));
    QVERIFY(!about.windowIcon().isNull());
}

void DialogsTest::aboutCopyrightColour_data()
{
    QTest::addColumn<QColor>("background");
    QTest::addColumn<QString>("styleSheet");
    QTest::newRow("dark theme") << QColor(Qt::black) << "QLabel {color:rgb(208,208,208)}";
    QTest::newRow("light theme") << QColor(Qt::white) << "";
}

void DialogsTest::aboutCopyrightColour()
{
    QFETCH(QColor, background);
    QFETCH(QString, styleSheet);
    const QPalette saved = QApplication::palette();
    QPalette palette = saved;
    palette.setColor(QPalette::Window, background);
    QApplication::setPalette(palette);
    AboutWindow about;
    QApplication::setPalette(saved);
    QCOMPARE(about.findChild<QLabel *>(QStringLiteral("label_3"))->styleSheet(), styleSheet);
}

void DialogsTest::lineEditFocusKeepsTextAndSelection_data()
{
    QTest::addColumn<int>("reason");
    QTest::newRow("mouse") << int(Qt::MouseFocusReason);
    QTest::newRow("keyboard") << int(Qt::TabFocusReason);
}

void DialogsTest::lineEditFocusKeepsTextAndSelection()
{
    QFETCH(int, reason);
    Nmb::Gui::NmQLineEdit edit;
    edit.setText(QStringLiteral("secret words"));
    edit.setSelection(0, 6);
    // (The accessibility announcement itself needs a platform bridge, which
    // the offscreen platform lacks.)
    QFocusEvent in(QEvent::FocusIn, Qt::FocusReason(reason));
    QApplication::sendEvent(&edit, &in);
    QCOMPARE(edit.text(), QStringLiteral("secret words"));
    QCOMPARE(edit.selectedText(), QStringLiteral("secret"));
}

QTEST_MAIN(DialogsTest)
#include "DialogsTest.moc"

// The passphrase field forgets what was typed into it, in memory too: when
// the batch it started ends and when a person empties it, with the
// passphrase hidden or shown. Hidden, it never hands the text to the
// clipboard.
#include "Application.h"
#include "GuiTestSupport.h"
#include "MainWindow.h"
#include "NmQLineEdit.h"

#include <engine/DecryptManager.h>
#include <engine/SecretText.h>
#include <memory_scan/MemoryScan.h>

#include <QTemporaryDir>
#include <QtWidgets>

using memory_scan::Secret;
using Nmb::Gui::NmQLineEdit;

namespace {
const int kWait = 60000; // generous for sanitizer builds; never a timing assertion

// Types text one key at a time; keyClicks() knows the keys of ASCII only.
void type(QWidget *widget, const QString &text)
{
    for (const QChar c : text)
        QTest::sendKeyEvent(QTest::Click, widget, Qt::Key_unknown, QString(c), Qt::NoModifier);
}
} // namespace

class PassphraseFieldTest : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

private slots:
    void initTestCase() { useSettingsIn(dir.filePath("settings")); }

    void forgetsPassphrase_data()
    {
        QTest::addColumn<bool>("shown");
        QTest::addColumn<bool>("byHand"); // emptied by a person, or by the end of the batch
        QTest::newRow("batch ends, hidden") << false << false;
        QTest::newRow("batch ends, shown") << true << false;
        QTest::newRow("emptied by hand, hidden") << false << true;
        QTest::newRow("emptied by hand, shown") << true << true;
    }

    void forgetsPassphrase()
    {
        QFETCH(bool, shown);
        QFETCH(bool, byHand);
        const Secret secret;
        const QString envelope = dir.filePath(QString("%1.txt.nimbra-env").arg(QTest::currentDataTag()));
        QVERIFY(secret.revealInChild(
            [&](const char *passphrase) { return writeFile(envelope, "plain", QString::fromUtf8(passphrase)); }));
        DecryptManager *manager = DecryptManager::instance();
        QVERIFY(manager->clearAll());
        QCOMPARE(manager->addFiles({envelope}), 1);

        MainWindow window;
        window.show();
        auto *field = window.findChild<NmQLineEdit *>("_phraseTxt");
        auto *button = window.findChild<QPushButton *>("_decryptBtn");
        auto *show = window.findChild<QCheckBox *>("_showPassCheck");
        QTRY_VERIFY(button->isEnabled());
        if (shown)
            show->click();
        secret.reveal([&](const char *passphrase) {
            QString typed = QString::fromUtf8(passphrase);
            type(field, typed);
            secret_text::wipe(typed);
        });
        // Whatever still shares a version of the text, as parts of the toolkit
        // may, reads nothing of it once the field is emptied: here the
        // versions shown, one of them laid out while the mode changed.
        QList<QString> held = {field->text(), field->displayText()};
        for (int i = 0; i < 2; ++i) {
            show->click();
            held << field->displayText();
        }
        const Secret::Copies typed = secret.find();
        QVERIFY2(typed.utf16 > 0 && typed.spread > 0, "the search does not see the typed passphrase");

        if (byHand) {
            QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier);
            held << field->displayText(); // laid out anew for the selection
            QTest::keyClick(field, Qt::Key_Backspace);
            QCoreApplication::processEvents();
        } else {
            button->click();
            QTRY_VERIFY_WITH_TIMEOUT(!button->isEnabled() && !manager->isBusy(), kWait);
            QCOMPARE(manager->finishedCount(), 1);
        }
        QTest::keyClick(field, Qt::Key_Z, Qt::ControlModifier); // undo brings nothing back
        QVERIFY(field->text().isEmpty());
        QVERIFY(secret.find().none()); // spread out too, one character in each undo record
    }

    void neverReachesClipboardHidden_data()
    {
        QTest::addColumn<bool>("shown");
        QTest::addColumn<QKeySequence>("keys");
        QTest::newRow("hidden: copy") << false << QKeySequence(QKeySequence::Copy);
        QTest::newRow("hidden: cut") << false << QKeySequence(QKeySequence::Cut);
        QTest::newRow("shown: copy reaches it") << true << QKeySequence(QKeySequence::Copy);
    }

    void neverReachesClipboardHidden()
    {
        QFETCH(bool, shown);
        QFETCH(QKeySequence, keys);
        NmQLineEdit field;
        field.setEchoMode(shown ? QLineEdit::Normal : QLineEdit::Password);
        field.setText(QStringLiteral("open sesame"));
        field.show();
        QApplication::clipboard()->setText(QStringLiteral("before"));
        field.selectAll();
        QTest::keySequence(&field, keys);
        QCOMPARE(QApplication::clipboard()->text(), shown ? QStringLiteral("open sesame") : QStringLiteral("before"));
    }
};

int main(int argc, char **argv)
{
    int appArgc = 1;
    Application app(appArgc, argv);
    PassphraseFieldTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "PassphraseFieldTest.moc"

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

private slots:
    void initTestCase();
    void forgetsPassphrase_data();
    void forgetsPassphrase();
    void neverReachesClipboardHidden_data();
    void neverReachesClipboardHidden();

private:
    QTemporaryDir dir;
};

void PassphraseFieldTest::initTestCase()
{
    QVERIFY(dir.isValid());
    useSettingsIn(dir.filePath("settings"));
}

void PassphraseFieldTest::forgetsPassphrase_data()
{
    QTest::addColumn<bool>("shown");
    QTest::addColumn<bool>("byHand"); // emptied by a person, or by the end of the batch
    QTest::newRow("batch ends, hidden") << false << false;
    QTest::newRow("batch ends, shown") << true << false;
    QTest::newRow("emptied by hand, hidden") << false << true;
    QTest::newRow("emptied by hand, shown") << true << true;
}

void PassphraseFieldTest::forgetsPassphrase()
{
    QFETCH(bool, shown);
    QFETCH(bool, byHand);
    const Secret secret;
    const QString envelope = dir.filePath(QString("%1.txt.nimbra-env").arg(QTest::currentDataTag()));
    bool written = false;
    secret.reveal([&](const char *passphrase) {
        written = memory_scan::inChild([&] { return writeFile(envelope, "plain", QString::fromUtf8(passphrase)); });
    });
    QVERIFY(written);
    DecryptManager *manager = DecryptManager::instance();
    QVERIFY(manager->clearAll());
    QCOMPARE(manager->addFiles({envelope}), 1);

    MainWindow window;
    window.show();
    auto *field = window.findChild<NmQLineEdit *>("_phraseTxt");
    auto *button = window.findChild<QPushButton *>("_decryptBtn");
    QTRY_VERIFY(button->isEnabled());
    if (shown)
        window.findChild<QCheckBox *>("_showPassCheck")->click();
    secret.reveal([&](const char *passphrase) {
        QString typed = QString::fromUtf8(passphrase);
        type(field, typed);
        secret_text::wipe(typed);
    });
    const Secret::Copies typed = secret.find();
    QVERIFY2(typed.utf16 > 0 && typed.spread > 0, "the search does not see the typed passphrase");

    if (byHand) {
        QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(field, Qt::Key_Backspace);
        QCoreApplication::processEvents();
    } else {
        button->click();
        QTRY_VERIFY_WITH_TIMEOUT(!button->isEnabled() && !manager->isBusy(), kWait);
        QCOMPARE(manager->finishedCount(), 1);
    }
    QVERIFY(field->text().isEmpty());
    QTest::keyClick(field, Qt::Key_Z, Qt::ControlModifier); // undo brings nothing back
    QVERIFY(field->text().isEmpty());

    const Secret::Copies left = secret.find();
    QVERIFY2(left.error.empty(), left.error.c_str());
    QCOMPARE(left.utf8, 0);
    QCOMPARE(left.utf16, 0);
    QCOMPARE(left.spread, 0); // one character in each undo record
}

void PassphraseFieldTest::neverReachesClipboardHidden_data()
{
    QTest::addColumn<bool>("shown");
    QTest::addColumn<QKeySequence>("keys");
    QTest::newRow("hidden: copy") << false << QKeySequence(QKeySequence::Copy);
    QTest::newRow("hidden: cut") << false << QKeySequence(QKeySequence::Cut);
    QTest::newRow("shown: copy reaches it") << true << QKeySequence(QKeySequence::Copy);
}

void PassphraseFieldTest::neverReachesClipboardHidden()
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

int main(int argc, char **argv)
{
    int appArgc = 1;
    Application app(appArgc, argv);
    PassphraseFieldTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "PassphraseFieldTest.moc"

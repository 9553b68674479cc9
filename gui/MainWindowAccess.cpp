// What makes the main window usable without a mouse or without sight:
// mnemonics, the names and descriptions that screen readers speak, the
// Decrypt button saying what pressing it does.
#include "MainWindow.h"

#include "Mnemonics.h"
#include "ui_MainWindow.h"

#include <localization/LocaleText.h>


void MainWindow::setUpAccessibility()
{
    ui->_phraseLbl->setBuddy(ui->_phraseTxt);
    ui->label->setBuddy(ui->_viewComboBox);
    ui->_phraseTxt->setAccessibleDescription(NM_TR("Type the passphrase of the envelopes, then press Return to decrypt"));
    ui->_showPassCheck->setAccessibleDescription(NM_TR("Shows the passphrase as plain text"));
    ui->_progressBar->setAccessibleName(NM_TR("Progress"));
    ui->_progressBar->setAccessibleDescription(NM_TR("Files of this batch that are done"));
    ui->_viewComboBox->setAccessibleDescription(NM_TR("Which tasks the table shows"));
    ui->_messagesTbl->setAccessibleName(NM_TR("Tasks"));
    // Rows are never selected, so nothing inside the table shows that the
    // keyboard is there: its frame does, in the palette's highlight colour.
    ui->_messagesTbl->setStyleSheet(QStringLiteral("QTableWidget { border: 1px solid palette(mid); padding: 1px; }"
                                                   "QTableWidget:focus { border: 2px solid palette(highlight); padding: 0px; }"));
    ui->_messagesTbl->setAccessibleDescription(NM_TR("One row per file: its name, progress and status"));
    // No accessible name for the status line: a label without one announces
    // each new text to screen readers, which is how they hear the messages.
    statusLabel->setAccessibleDescription(NM_TR("Status"));
    ui->toolBar->setAccessibleName(NM_TR("Tool bar"));
    connect(ui->_decryptBtn, &QAbstractButton::toggled, this, &MainWindow::showDecryptButtonState);
}

// Mnemonics are chosen from the texts in the language shown: the menu bar
// and the window's own labels share the Alt keys with the actions'
// shortcuts; the items of each menu only need to differ from each other.
void MainWindow::applyMnemonics()
{
    using Nmb::Gui::withMnemonics;
    QMenu *menus[] = {ui->menuFile, ui->menuCommands, ui->menuAbout};
    QStringList windowTexts;
    for (QMenu *menu : menus)
        windowTexts << menu->title();
    windowTexts << ui->_phraseLbl->text() << ui->_showPassCheck->text() << ui->label->text();
    const QStringList marked = withMnemonics(windowTexts, Nmb::Gui::altKeysOf(findChildren<QAction *>()));
    int i = 0;
    for (QMenu *menu : menus) {
        menu->setTitle(marked.at(i++));
        QList<QAction *> items;
        for (QAction *action : menu->actions()) {
            if (!action->isSeparator())
                items << action;
        }
        QStringList texts;
        for (QAction *action : qAsConst(items))
            texts << action->text();
        texts = withMnemonics(texts);
        for (int k = 0; k < items.size(); ++k)
            items.at(k)->setText(texts.at(k));
    }
    ui->_phraseLbl->setText(marked.at(i++));
    ui->_showPassCheck->setText(marked.at(i++));
    ui->label->setText(marked.at(i++));
}

void MainWindow::showDecryptButtonState(bool checked)
{
    QPushButton *button = ui->_decryptBtn;
    const QString stop = NM_TR("Stop");
    const QString decrypt = NM_TR("Decrypt");
    // As wide as the wider text, so the row does not jump when it changes.
    int width = 0;
    for (const QString &text : {stop, decrypt}) {
        button->setText(text);
        width = qMax(width, button->sizeHint().width());
    }
    button->setMinimumWidth(width);
    button->setText(checked ? stop : decrypt);
    // A new text resets a button's shortcut to the text's mnemonic.
    button->setShortcut(QKeySequence(Qt::Key_Return));
    const QString what = checked ? NM_TR("Stops decrypting: files in progress are cancelled and stay pending")
                                 : NM_TR("Decrypts the listed files with the passphrase");
    button->setToolTip(checked ? what : QString());
    button->setAccessibleDescription(what);
}

// What the main window shows while tasks come and go: the status line with
// its counts, the progress bar, the views of the task table with their row
// colours, the Decrypt button's state, the questions and the exit codes.
#include "MainWindow.h"

#include "BatchNotifier.h"
#include "GuiSupport.h"
#include "ui_MainWindow.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>
#include <localization/LocaleText.h>

#include <QApplication>
#include <QFileInfo>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace {
QByteArray number(int n)
{
    return QByteArray::number(n);
}
} // namespace

void MainWindow::onTimeout()
{
    onStatusMessage(QString(), false);
}

void MainWindow::onStatsChanged()
{
    onStatusMessage(QString(), false);
}

void MainWindow::onError(QString msg)
{
    onStatusMessage(msg, false);
}

void MainWindow::onStatusChanged(QString msg)
{
    onStatusMessage(msg, false);
}

void MainWindow::onStatusMessage(QString msg, bool persist)
{
    DecryptManager *manager = DecryptManager::instance();
    const int pending = manager->pendingCount();
    const int running = manager->runningCount();

    if (running > 0) {
        ui->_progressBar->setValue(qMax(0, ui->_progressBar->maximum() - running - pending));
        ui->_progressLbl->setText(ui->_progressBar->text());
    }
    if (!ui->_decryptBtn->isEnabled() && pending > 0)
        ui->_decryptBtn->setEnabled(true);
    statusTimer->stop();

    if (!msg.isEmpty()) {
        statusLabel->setText(QStringLiteral("   ") + msg);
        if (!persist)
            statusTimer->start();
        return;
    }
    statusBar()->clearMessage();
    statusLabel->setText(countsText());
}

QString MainWindow::countsText() const
{
    DecryptManager *manager = DecryptManager::instance();
    return NM_TR("   %1$s finished, %2$s failed, %3$s pending, %4$s total",
                 number(manager->finishedCount()).constData(), number(manager->failedCount()).constData(),
                 number(manager->pendingCount()).constData(), number(manager->totalCount()).constData());
}



void MainWindow::resetProgressBar()
{
    ui->_progressBar->setValue(0);
    ui->_progressLbl->setText(QStringLiteral("0%"));
}

void MainWindow::onDecryptClicked(bool on)
{
    if (on)
        DecryptManager::instance()->start(ui->_phraseTxt->text());
    else
        DecryptManager::instance()->stop();
}

void MainWindow::onDecryptManagerStart(int startNum)
{
    resetProgressBar();
    ui->_progressBar->setMaximum(startNum);
    onStatusMessage(QString(), false);
    notifier->batchStarted();
}

void MainWindow::onDecryptManagerFinished()
{
    // The batch is over, and its passphrase with it: the manager has wiped
    // its copies, the field wipes the window's.
    ui->_phraseTxt->clearSecret();
    DecryptManager *manager = DecryptManager::instance();
    if (manager->pendingCount() == 0) {
        ui->_progressBar->setValue(ui->_progressBar->maximum());
        ui->_progressLbl->setText(QStringLiteral("100%"));
    }
    // Before any question, which would hold it back until answered.
    notifier->batchFinished(countsText());
    const int failed = manager->failedCount();
    if (failed > 0) {
        const QString question =
            NM_TR(failed == 1 ? "%s task has failed." : "%s tasks have failed.", number(failed).constData())
            + QLatin1Char(' ') + NM_TR("Do you want to reload?");
        if (showOkCancelBox(question))
            onReloadFailed();
    }
    if (manager->pendingCount() == 0 && manager->runningCount() == 0) {
        setDecryptIdle();
        onStatusMessage(QString(), false);
    }
    // Ready for the next passphrase, whatever had the focus during the run.
    ui->_phraseTxt->setFocus();
}

void MainWindow::onFilesLoaded(QString msg)
{
    onStatusMessage(msg, false);
    if (ui->_progressBar->value() == ui->_progressBar->maximum())
        resetProgressBar();
}

void MainWindow::setDecryptIdle()
{
    ui->_decryptBtn->setChecked(false);
    ui->_decryptBtn->setEnabled(false);
}

bool MainWindow::showOkCancelBox(QString question)
{
    if (messageBox->isVisible())
        return false;
    messageBox->setWindowTitle(QStringLiteral("Orn Nimbra Crypt"));
    messageBox->setText(question);
    messageBox->setIcon(QMessageBox::Question);
    messageBox->setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
    messageBox->button(QMessageBox::Ok)->setText(NM_TR("OK"));
    messageBox->button(QMessageBox::Cancel)->setText(NM_TR("Cancel"));
    messageBox->setDefaultButton(QMessageBox::Ok);
    messageBox->setWindowIcon(QIcon(QStringLiteral(":/crypt/crypt.png")));
    return messageBox->exec() == QMessageBox::Ok;
}

void MainWindow::onExitTriggered()
{
    DecryptManager *manager = DecryptManager::instance();
    bool stopped = false;
    if (manager->isBusy()) {
        manager->stop();
        stopped = true;
    }
    bool ask = stopped || manager->pendingCount() > 0;
    if (TaskManager::instance()->isRunning()) {
        TaskManager::instance()->cancel();
        ask = true;
    }
    if (ask && !showOkCancelBox(NM_TR("There are current tasks. Do you want to exit?")))
        return;

    const bool failed = !manager->failedTasks().isEmpty();
    const bool pending = manager->pendingCount() > 0;
    const int code = failed ? (pending ? -4 : -2) : (pending ? -3 : 0);
    QCoreApplication::exit(code);
}

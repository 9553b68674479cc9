// The main window's commands: opening files and folders, the clear, reload
// and delete commands, quitting, and the command line.
#include "MainWindow.h"

#include "GuiSupport.h"
#include "ui_MainWindow.h"

#include <Windowless.h>
#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>
#include <localization/LocaleText.h>

#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>

#include <cstdio>
#include <cstdlib>

namespace {
// Ends the process at once: no event loop, no saved settings, no questions.
[[noreturn]] void endProcess(int code)
{
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(code);
}

// "-file-list": the process ends when the list cannot be read, so the
// reason goes to standard error instead of the status line.
bool loadListFile(const QString &path)
{
    TaskManager *tasks = TaskManager::instance();
    QString reason;
    const QMetaObject::Connection caught = QObject::connect(
        tasks, &TaskManager::error, tasks, [&reason](const QString &msg) { reason = msg; }, Qt::DirectConnection);
    const bool loading = tasks->loadFromFile(path);
    QObject::disconnect(caught);
    if (!reason.isEmpty())
        cli::printErrorLine(reason);
    return loading;
}
} // namespace

void MainWindow::onOpenFiles()
{
    const QString filter = NM_TR("Encrypted Files (*.%s);;All Files (*)", "nimbra-env");
    const QStringList files =
        QFileDialog::getOpenFileNames(this, NM_TR("Open Encrypted files"), currentDir, filter);
    if (files.isEmpty())
        return;
    currentDir = QFileInfo(files.first()).absolutePath();
    saveSettings();
    // A file picked by hand is taken even without the envelope suffix.
    TaskManager::instance()->loadFiles(files, false);
}

void MainWindow::onOpenFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(
        this, NM_TR("Open Directory"), currentDir,
        QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (folder.isEmpty())
        return;
    currentDir = folder;
    saveSettings();
    TaskManager::instance()->loadFiles({folder}, false);
}

void MainWindow::onClearAll(bool justTable)
{
    clearTable();
    if (!justTable)
        TaskManager::instance()->clearStatus(Task::Cleared);
    resetProgressBar();
    setDecryptIdle();
}

void MainWindow::onClearFinished(bool justTable)
{
    removeRowsWithStatus(Task::Finished);
    if (!justTable)
        TaskManager::instance()->clearStatus(Task::Finished);
}

void MainWindow::onClearFailed(bool justTable)
{
    removeRowsWithStatus(Task::Error);
    if (!justTable)
        TaskManager::instance()->clearStatus(Task::Error);
}

void MainWindow::onClearPending(bool justTable)
{
    removeRowsWithStatus(Task::Waiting);
    if (!justTable)
        TaskManager::instance()->clearStatus(Task::Waiting);
    setDecryptIdle();
}

void MainWindow::onReloadFailed()
{
    // The failed tasks go back to pending; their rows would only go stale.
    // A refused request (another operation runs) leaves them shown.
    if (!TaskManager::instance()->isRunning())
        onClearFailed(true);
    TaskManager::instance()->reloadFailed();
}

void MainWindow::onDeleteEncrypted()
{
    if (showOkCancelBox(NM_TR("Do you want to delete encrypted source files from finished tasks?")))
        TaskManager::instance()->deleteEncrypted();
}

void MainWindow::onAboutToQuit()
{
    TaskManager *tasks = TaskManager::instance();
    tasks->cancel();
    DecryptManager::instance()->stop();
    // A running operation stops at its next item; its thread must have ended
    // before the task manager is destroyed.
    tasks->wait();
    TaskManager::release();
    ui->_phraseTxt->clearSecret();
    clearTable();
    saveSettings();
}

// The windowless modes are served before the window exists (runProgram);
// reached here, they still end the process with their own exit code.
void MainWindow::processCommandline()
{
    const QStringList args = QCoreApplication::arguments();
    if (args.size() < 2)
        return;
    const QString first = args.at(1);
    if (cli::isWindowlessMode(first)) {
        endProcess(cli::runWindowlessMode(args));
    } else if (first == QLatin1String("*")) {
        TaskManager::instance()->loadFiles({QDir::currentPath()}, false);
    } else if (first == QLatin1String("-file-list")) {
        if (args.size() != 3 || !loadListFile(args.at(2)))
            endProcess(-1);
    } else if (args.size() == 2) {
        TaskManager::instance()->loadFiles({first}, true);
        title += QStringLiteral(" - ") + first;
    } else {
        TaskManager::instance()->loadFiles(args.mid(1), true);
    }
}

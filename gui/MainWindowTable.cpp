// The task table: its three views, one row per task with a coloured status
// cell, and the drag-and-drop and keyboard handling of the table.
#include "MainWindow.h"

#include "ui_MainWindow.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include <QDir>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMimeData>

namespace {
enum View { Latest = 0, FinishedView = 1, FailedView = 2 };
enum Column { FileColumn = 0, ProgressColumn = 1, StatusColumn = 2 };

QColor statusColour(Task::STATUS status)
{
    switch (status) {
    case Task::Finished:
        return QColor(QStringLiteral("green"));
    case Task::Decrypting:
        return QColor(QStringLiteral("blue"));
    case Task::Error:
        return QColor(146, 4, 4, 255);
    default:
        return QColor(QStringLiteral("black"));
    }
}
} // namespace

void MainWindow::onViewChanged(int view)
{
    DecryptManager *manager = DecryptManager::instance();
    QList<CryptTask *> tasks;
    switch (view) {
    case Latest:
        tasks = manager->finishedTasks() + manager->failedTasks() + manager->runningTasks();
        break;
    case FinishedView:
        tasks = manager->finishedTasks();
        break;
    case FailedView:
        tasks = manager->failedTasks();
        break;
    default:
        return;
    }
    currentView = view;
    fillTable(tasks);
}

void MainWindow::onDecryptStatus(const CryptTask *task)
{
    onStatusMessage(QString(), false);
    if (task)
        writeRow(task);
}

void MainWindow::clearTable()
{
    QTableWidget *table = ui->_messagesTbl;
    table->model()->removeRows(0, table->rowCount());
    table->clearContents();
    table->setRowCount(0);
    rows.clear();
    table->repaint();
}

void MainWindow::fillTable(const QList<CryptTask *> &tasks)
{
    clearTable();
    // Only the newest entries are shown; the oldest of a long list are left out.
    for (int i = qMax(0, tasks.size() - latestLimit); i < tasks.size(); ++i)
        writeRow(tasks.at(i));
}

bool MainWindow::belongsToView(const CryptTask *task) const
{
    switch (currentView) {
    case FinishedView:
        return task->status() == Task::Finished;
    case FailedView:
        return task->status() == Task::Error;
    default:
        return task->status() != Task::Waiting;
    }
}

void MainWindow::writeRow(const CryptTask *task)
{
    QTableWidget *table = ui->_messagesTbl;
    QTableWidgetItem *fileItem = rows.value(task);
    if (!fileItem) {
        if (!belongsToView(task))
            return;
        if (table->rowCount() >= latestLimit)
            removeTableRow(0);
        const int row = table->rowCount();
        table->insertRow(row);
        fileItem = new QTableWidgetItem;
        fileItem->setData(Qt::UserRole, QVariant::fromValue(quintptr(task)));
        table->setItem(row, FileColumn, fileItem);
        table->setItem(row, ProgressColumn, new QTableWidgetItem);
        table->setItem(row, StatusColumn, new QTableWidgetItem);
        rows.insert(task, fileItem);
        // A row outlives its task (clearing and reloading delete tasks); it
        // then keeps its last text and is never updated again.
        connect(task, &QObject::destroyed, this, [this, task] { rows.remove(task); });
    }
    const int row = fileItem->row();
    fileItem->setText(QFileInfo(task->addedPath()).fileName());
    fileItem->setToolTip(QDir::toNativeSeparators(task->addedPath()));
    const int percent = qRound(task->progress() * 100);
    table->item(row, ProgressColumn)->setText(QString::number(percent) + QLatin1Char('%'));
    QTableWidgetItem *statusItem = table->item(row, StatusColumn);
    statusItem->setText(task->statusText());
    statusItem->setToolTip(statusItem->text());
    statusItem->setForeground(statusColour(task->status()));
    statusItem->setData(Qt::UserRole, int(task->status()));
    // Long output paths and error texts wrap instead of being cut.
    table->resizeRowToContents(row);
}

void MainWindow::removeTableRow(int row)
{
    QTableWidget *table = ui->_messagesTbl;
    const quintptr task = table->item(row, FileColumn)->data(Qt::UserRole).value<quintptr>();
    rows.remove(reinterpret_cast<const CryptTask *>(task));
    table->removeRow(row);
}

void MainWindow::removeRowsWithStatus(int status)
{
    QTableWidget *table = ui->_messagesTbl;
    for (int row = table->rowCount() - 1; row >= 0; --row) {
        const int shown = table->item(row, StatusColumn)->data(Qt::UserRole).toInt();
        const bool pendingRow = shown == Task::Waiting || shown == Task::Cancelled;
        if (status == Task::Waiting ? pendingRow : shown == status)
            removeTableRow(row);
    }
}

bool MainWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == ui->_messagesTbl || watched == ui->_messagesTbl->viewport()) {
        if (filterTableEvent(event))
            return true;
    }
    return QMainWindow::eventFilter(watched, event);
}

bool MainWindow::filterTableEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove: {
        // No new files while a decryption runs.
        auto *drag = static_cast<QDragMoveEvent *>(event);
        if (!ui->_decryptBtn->isChecked() && drag->mimeData()->hasFormat(QStringLiteral("text/uri-list")))
            drag->acceptProposedAction();
        else
            drag->ignore();
        return true;
    }
    case QEvent::Drop:
        TaskManager::instance()->loadUrls(static_cast<QDropEvent *>(event)->mimeData()->urls(), false);
        return true;
    case QEvent::KeyPress: {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key != Qt::Key_Tab && key != Qt::Key_Backtab)
            return false;
        focusNextPrevChild(key == Qt::Key_Tab);
        return true;
    }
    default:
        return false;
    }
}

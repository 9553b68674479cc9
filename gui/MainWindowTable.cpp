// The task table: its three views, one row per task with a coloured status
// cell that stays readable on the desktop's palette, following new rows, and
// the drag-and-drop and keyboard handling of the table.
#include "MainWindow.h"

#include "Readability.h"
#include "ui_MainWindow.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include <QDir>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMimeData>
#include <QScrollBar>

namespace {
enum View { Latest = 0, FinishedView = 1, FailedView = 2 };
enum Column { FileColumn = 0, ProgressColumn = 1, StatusColumn = 2 };

// The colour each status is meant to have; rowColour() bends it where the
// palette would make it unreadable.
QColor statusColour(int status)
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

QColor MainWindow::rowColour(int status) const
{
    const QPalette palette = ui->_messagesTbl->palette();
    return Nmb::Gui::readableColour(statusColour(status), {palette.color(QPalette::Base),
                                                           palette.color(QPalette::AlternateBase)});
}

// The row that shows task: its own, or else the row of an earlier attempt
// at the same file that was stopped (a cancelled task stays listed while its
// file runs again), which the new task takes over. Null when there is none.
QTableWidgetItem *MainWindow::rowFor(const CryptTask *task)
{
    if (QTableWidgetItem *item = rows.value(task))
        return item;
    QTableWidget *table = ui->_messagesTbl;
    for (int row = table->rowCount() - 1; row >= 0; --row) {
        QTableWidgetItem *fileItem = table->item(row, FileColumn);
        if (table->item(row, StatusColumn)->data(Qt::UserRole).toInt() == Task::Cancelled
            && fileItem->data(Qt::UserRole + 1).toString() == task->addedPath()) {
            rows.remove(rows.key(fileItem));
            return fileItem;
        }
    }
    return nullptr;
}

QTableWidgetItem *MainWindow::appendRow()
{
    QTableWidget *table = ui->_messagesTbl;
    if (table->rowCount() >= latestLimit)
        removeTableRow(0);
    const int row = table->rowCount();
    table->insertRow(row);
    auto *fileItem = new QTableWidgetItem;
    table->setItem(row, FileColumn, fileItem);
    table->setItem(row, ProgressColumn, new QTableWidgetItem);
    table->setItem(row, StatusColumn, new QTableWidgetItem);
    return fileItem;
}

void MainWindow::writeRow(const CryptTask *task)
{
    QTableWidget *table = ui->_messagesTbl;
    QTableWidgetItem *fileItem = rowFor(task);
    if (!fileItem) {
        if (!belongsToView(task))
            return;
        fileItem = appendRow();
    }
    if (!rows.contains(task)) {
        rows.insert(task, fileItem);
        fileItem->setData(Qt::UserRole, QVariant::fromValue(quintptr(static_cast<const QObject *>(task))));
        fileItem->setData(Qt::UserRole + 1, task->addedPath());
        // One connection per task however often the table is rebuilt.
        connect(task, &QObject::destroyed, this, &MainWindow::onTaskDestroyed, Qt::UniqueConnection);
    }
    const int row = fileItem->row();
    fileItem->setText(QFileInfo(task->addedPath()).fileName());
    fileItem->setToolTip(QDir::toNativeSeparators(task->addedPath()));
    const int percent = qRound(task->progress() * 100);
    table->item(row, ProgressColumn)->setText(QString::number(percent) + QLatin1Char('%'));
    QTableWidgetItem *statusItem = table->item(row, StatusColumn);
    statusItem->setText(task->statusText());
    statusItem->setToolTip(statusItem->text());
    statusItem->setData(Qt::UserRole, int(task->status()));
    statusItem->setForeground(rowColour(task->status()));
    // Long output paths and error texts wrap instead of being cut.
    table->resizeRowToContents(row);
}

// A person who is watching the end of the table stays there as rows come
// and grow (a finished row takes more lines for its output path), whenever
// the view gets round to taking them in; scrolled away, they stay put.
void MainWindow::followTableEnd()
{
    QScrollBar *bar = ui->_messagesTbl->verticalScrollBar();
    connect(bar, &QScrollBar::valueChanged, this, [this, bar](int value) { tableAtEnd = value == bar->maximum(); });
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar](int, int maximum) {
        if (tableAtEnd)
            bar->setValue(maximum);
    });
}

// A row never outlives its task: the text it shows could not change any more.
void MainWindow::onTaskDestroyed(QObject *task)
{
    if (QTableWidgetItem *fileItem = rows.take(task))
        ui->_messagesTbl->removeRow(fileItem->row());
}

void MainWindow::removeTableRow(int row)
{
    QTableWidget *table = ui->_messagesTbl;
    QTableWidgetItem *fileItem = table->item(row, FileColumn);
    const auto task = reinterpret_cast<const QObject *>(fileItem->data(Qt::UserRole).value<quintptr>());
    // Only when the entry still names this row: the key is an address.
    if (rows.value(task) == fileItem)
        rows.remove(task);
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

// Rows cannot be selected, so the view's own cursor keys move nothing; they
// scroll the table instead.
bool MainWindow::scrollTableByKey(int key)
{
    static const QHash<int, QAbstractSlider::SliderAction> actions{
        {Qt::Key_Up, QAbstractSlider::SliderSingleStepSub},  {Qt::Key_Down, QAbstractSlider::SliderSingleStepAdd},
        {Qt::Key_PageUp, QAbstractSlider::SliderPageStepSub}, {Qt::Key_PageDown, QAbstractSlider::SliderPageStepAdd},
        {Qt::Key_Home, QAbstractSlider::SliderToMinimum},     {Qt::Key_End, QAbstractSlider::SliderToMaximum}};
    const auto action = actions.find(key);
    if (action == actions.end())
        return false;
    ui->_messagesTbl->verticalScrollBar()->triggerAction(action.value());
    return true;
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
        if (key == Qt::Key_Tab || key == Qt::Key_Backtab) {
            focusNextPrevChild(key == Qt::Key_Tab);
            return true;
        }
        return scrollTableByKey(key);
    }
    default:
        return false;
    }
}

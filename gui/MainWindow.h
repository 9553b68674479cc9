// The application's only top-level window: the passphrase row with Decrypt,
// the progress bar, the view selector, the task table and the status line,
// the File/Options/About menus and the tool bar. It drives the decrypt
// manager directly and hands every list operation (loading, clearing,
// reloading, deleting) to the task manager's thread.
#pragma once

#include <QHash>
#include <QMainWindow>
#include <QSettings>

#include <memory>

class CryptTask;
class QLabel;

namespace Nmb {
namespace Gui {
class BatchNotifier;
}
} // namespace Nmb
class QMessageBox;
class QTableWidgetItem;
class QTimer;

namespace Ui {
class MainWindow;
}

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

signals:
    void setTitle(QString);

public slots:
    void show();

protected slots:
    void onSetTitle(QString title);
    void onProgressTimer();
    void onOpenFiles();
    void onOpenFolder();
    void onShowSettings();
    void onShowAbout();
    void onExitTriggered();
    void onDecryptClicked(bool on);
    void onEnterPressed();
    void onReloadFailed();
    void onClearAll(bool justTable = false);
    void onClearFinished(bool justTable = false);
    void onClearFailed(bool justTable = false);
    void onClearPending(bool justTable = false);
    void onDeleteEncrypted();
    void onViewChanged(int view);
    // Asks question on the window's one message box; false at once when a
    // question is already open.
    bool showOkCancelBox(QString question);
    void showPassword(bool on);
    void onDecryptStatus(const CryptTask *task);
    void onFilesLoaded(QString msg);
    void onDecryptManagerStart(int startNum);
    void onDecryptManagerFinished();
    void loadSettings();
    void saveSettings();
    void resetProgressBar();
    QMenu *createPopupMenu() override;
    void onAboutToQuit();
    void closeEvent(QCloseEvent *event) override;
    // Reads the command line; the test modes and "-v" end the process here.
    void processCommandline();

private slots:
    void onTimeout();
    void onStatsChanged();
    void onError(QString msg);
    void onStatusChanged(QString msg);
    // Shows msg in the status line (for 5 s unless persist), or the counts
    // of finished, failed, pending and all tasks when msg is empty.
    void onStatusMessage(QString msg, bool persist);
    void onTaskDestroyed(QObject *task);

protected:
    // Drops on the task table, and Tab moving on from it.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setUpTable();
    void setUpToolBarIcons();
    void connectActions();
    void connectDecryptManager();
    void connectTaskManager();
    void applyLocalizedTexts();
    void setUpAccessibility();
    void applyMnemonics();
    // The Decrypt button reads "Stop" while checked, and says what it does.
    void showDecryptButtonState(bool checked);
    bool filterTableEvent(QEvent *event);
    bool scrollTableByKey(int key);

    void clearTable();
    void fillTable(const QList<CryptTask *> &tasks);
    void writeRow(const CryptTask *task);
    QTableWidgetItem *rowFor(const CryptTask *task);
    QTableWidgetItem *appendRow();
    QColor rowColour(int status) const;
    void followTableEnd();
    bool belongsToView(const CryptTask *task) const;
    void removeTableRow(int row);
    void removeRowsWithStatus(int status);
    void setDecryptIdle();
    // "   3 finished, 1 failed, 0 pending, 4 total", looked up.
    QString countsText() const;

    std::unique_ptr<Ui::MainWindow> ui;
    QSettings settings;
    QString currentDir;
    QLabel *statusLabel = nullptr;
    int latestLimit = 0;
    QTimer *statusTimer = nullptr;
    bool flag = false;
    int currentView = 0;
    QMessageBox *messageBox = nullptr;
    QString title;
    // The filename cell of each task's row (the row follows the item when
    // older rows are removed); an entry goes when its task is destroyed.
    QHash<const QObject *, QTableWidgetItem *> rows;
    std::unique_ptr<Nmb::Gui::BatchNotifier> notifier;
    bool tableAtEnd = true; // the task table shows its last row
};

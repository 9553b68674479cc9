// Construction of the main window: the form, the table's presentation, the
// wiring to the dialogs and the engine, and the localized texts.
#include "MainWindow.h"

#include "AboutWindow.h"
#include "BatchNotifier.h"
#include "BusyDialog.h"
#include "GuiSupport.h"
#include "SettingsDialog.h"
#include "ui_MainWindow.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>
#include <localization/LocaleLoader.h>
#include <localization/LocaleText.h>

#include <QApplication>
#include <QCloseEvent>
#include <QDebug>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QScrollBar>
#include <QTimer>

static const char *const currentDirKey = "FileDialog/currentDir";

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , ui(new Ui::MainWindow)
{
    statusTimer = new QTimer(this);
    messageBox = new QMessageBox(this);
    Nmb::Gui::initResources();
    ui->setupUi(this);
    loadLocaleStrings();
    title = windowTitle();

    statusLabel = new QLabel(this);
    statusLabel->setObjectName(QStringLiteral("_statusLbl"));
    // A long message (a path, a longer language) takes a second line rather than being cut.
    statusLabel->setWordWrap(true);
    statusBar()->addWidget(statusLabel, 1);
    ui->_decryptBtn->setEnabled(false);
    for (QAction *action : {ui->actionOpenFiles, ui->actionOpenFolder, ui->actionSettings,
                            ui->actionReloadFailed, ui->actionClearFinished, ui->actionClearFailed,
                            ui->actionClearPending, ui->actionClearAll})
        ui->_phraseTxt->addAction(action);
    qApp->setStyleSheet(QStringLiteral("QStatusBar::item { border: 0px solid black } "));
    setUpTable();
    followTableEnd();
    setUpAccessibility();
    notifier.reset(new Nmb::Gui::BatchNotifier(this));
    // Room for "100%", so the progress bar keeps its width as the count grows.
    ui->_progressLbl->setMinimumWidth(ui->_progressLbl->fontMetrics().horizontalAdvance(QStringLiteral("100%")));
    ui->_progressLbl->setAlignment(Qt::AlignRight | Qt::AlignVCenter);

    flag = false;
    statusTimer->setInterval(5000);
    connect(statusTimer, &QTimer::timeout, this, &MainWindow::onTimeout);
    connect(qApp, &QCoreApplication::aboutToQuit, this, &MainWindow::onAboutToQuit);
    setWindowIcon(QIcon(QStringLiteral(":/crypt/crypt.png")));
    setUpToolBarIcons();

    connectActions();
    connectDecryptManager();
    connectTaskManager();
    connect(ui->_viewComboBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &MainWindow::onViewChanged);
    // Also given again with every new text of the button, which drops it.
    ui->_decryptBtn->setShortcut(QKeySequence(Qt::Key_Return));

    loadSettings();
    latestLimit = 1000;
    onStatusMessage(NM_TR("Drag files and folders to start decrypting..."), false);
    processCommandline();
    setWindowTitle(title);
    Nmb::Gui::centreOnPrimaryScreen(this);
    applyLocalizedTexts();
}

MainWindow::~MainWindow() = default;

void MainWindow::setUpTable()
{
    QTableWidget *table = ui->_messagesTbl;
    table->setColumnWidth(0, 200);
    table->setColumnWidth(1, 80);
    table->setColumnWidth(2, 400);
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table->horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);
    table->horizontalScrollBar()->setDisabled(true);
    table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    table->verticalHeader()->hide();
    table->horizontalHeader()->hide();
    table->setGridStyle(Qt::NoPen);
    table->setWordWrap(true);
    table->setAlternatingRowColors(true);
    table->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setDragDropMode(QAbstractItemView::DropOnly);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::NoSelection);
    table->setAcceptDrops(true);
    table->installEventFilter(this);
    // Drag and drop events reach the view's viewport, not the view itself.
    table->viewport()->setAcceptDrops(true);
    table->viewport()->installEventFilter(this);
}

void MainWindow::setUpToolBarIcons()
{
    const QStyle *s = style();
    ui->actionOpenFiles->setIcon(QIcon::fromTheme(QStringLiteral("document-open"),
                                                  s->standardIcon(QStyle::SP_DialogOpenButton)));
    ui->actionOpenFolder->setIcon(QIcon::fromTheme(QStringLiteral("folder-open"),
                                                   s->standardIcon(QStyle::SP_DirIcon)));
    ui->actionSettings->setIcon(QIcon::fromTheme(QStringLiteral("preferences-system"),
                                                 s->standardIcon(QStyle::SP_FileDialogDetailedView)));
}

void MainWindow::connectActions()
{
    connect(ui->actionExit, &QAction::triggered, this, &MainWindow::onExitTriggered);
    connect(ui->actionOpenFiles, &QAction::triggered, this, &MainWindow::onOpenFiles);
    connect(ui->actionOpenFolder, &QAction::triggered, this, &MainWindow::onOpenFolder);
    connect(ui->actionClearAll, &QAction::triggered, this, &MainWindow::onClearAll);
    connect(ui->actionDeleteEncrypted, &QAction::triggered, this, &MainWindow::onDeleteEncrypted);
    connect(ui->actionClearFinished, &QAction::triggered, this, &MainWindow::onClearFinished);
    connect(ui->actionClearFailed, &QAction::triggered, this, &MainWindow::onClearFailed);
    connect(ui->actionClearPending, &QAction::triggered, this, &MainWindow::onClearPending);
    connect(ui->actionSettings, &QAction::triggered, this, &MainWindow::onShowSettings);
    connect(ui->actionAbout, &QAction::triggered, this, &MainWindow::onShowAbout);
    connect(ui->actionReloadFailed, &QAction::triggered, this, &MainWindow::onReloadFailed);

    connect(ui->_showPassCheck, &QAbstractButton::clicked, this, &MainWindow::showPassword);
    connect(ui->_decryptBtn, &QAbstractButton::clicked, this, &MainWindow::onDecryptClicked);
    // While a decryption runs only Exit and About stay available.
    for (QAction *action : {ui->actionOpenFiles, ui->actionOpenFolder, ui->actionReloadFailed,
                            ui->actionClearAll, ui->actionDeleteEncrypted, ui->actionClearFinished,
                            ui->actionClearFailed, ui->actionClearPending, ui->actionSettings})
        connect(ui->_decryptBtn, &QAbstractButton::toggled, action, &QAction::setDisabled);
}

void MainWindow::connectDecryptManager()
{
    SettingsDialog *settingsDialog = SettingsDialog::instance();
    DecryptManager *manager = DecryptManager::instance();
    connect(settingsDialog, &SettingsDialog::numThreadChanged, manager,
            &DecryptManager::onChangeNumThreads);
    manager->onChangeNumThreads(settingsDialog->numThreads());
    manager->setDeleteEncryptedProvider([settingsDialog] { return settingsDialog->deleteEncrypted(); });

    qRegisterMetaType<const CryptTask *>("const CryptTask*");
    connect(manager, QOverload<const CryptTask *>::of(&DecryptManager::statsChanged), this,
            &MainWindow::onDecryptStatus, Qt::QueuedConnection);
    connect(manager, QOverload<>::of(&DecryptManager::statsChanged), this,
            &MainWindow::onStatsChanged, Qt::QueuedConnection);
    connect(manager, &DecryptManager::started, this, &MainWindow::onDecryptManagerStart,
            Qt::QueuedConnection);
    connect(manager, &DecryptManager::allFinished, this, &MainWindow::onDecryptManagerFinished,
            Qt::QueuedConnection);
    connect(manager, &DecryptManager::error, this, &MainWindow::onError, Qt::QueuedConnection);
}

void MainWindow::connectTaskManager()
{
    TaskManager *tasks = TaskManager::instance();
    BusyDialog *busy = BusyDialog::instance();
    connect(tasks, &TaskManager::started, busy, &BusyDialog::execute, Qt::QueuedConnection);
    connect(tasks, &QThread::finished, busy, &QDialog::accept, Qt::QueuedConnection);
    connect(tasks, &TaskManager::filesLoaded, this, &MainWindow::onFilesLoaded, Qt::QueuedConnection);
    connect(tasks, &TaskManager::statusCleared, this, &MainWindow::onStatusChanged, Qt::QueuedConnection);
    connect(tasks, &TaskManager::statusMessage, this, &MainWindow::onStatusMessage, Qt::QueuedConnection);
    connect(tasks, &TaskManager::statusReloadFailedTask, this, &MainWindow::onStatusChanged,
            Qt::QueuedConnection);
    connect(tasks, &TaskManager::error, this, &MainWindow::onError, Qt::QueuedConnection);
    connect(busy, &BusyDialog::cancelled, tasks, &TaskManager::cancel, Qt::QueuedConnection);
}

void MainWindow::applyLocalizedTexts()
{
    const struct {
        QAction *action;
        const char *text;
        const char *toolTip;
    } actions[] = {
        {ui->actionExit, "Exit", "Exit"},
        {ui->actionOpenFiles, "Open Files", "Select file(s) to decrypt"},
        {ui->actionOpenFolder, "Open Folder", "Decrypt all files and folders in selected folder"},
        {ui->actionClearAll, "Clear All", "Clear all tasks"},
        {ui->actionDeleteEncrypted, "Delete Encrypted", "Delete encrypted files from finished tasks"},
        {ui->actionClearFinished, "Clear Finished", "Clear finished tasks"},
        {ui->actionClearFailed, "Clear Failed", "Clear failed tasks"},
        {ui->actionClearPending, "Clear Pending", "Clear pending tasks"},
        {ui->actionSettings, "Settings", "Open Settings dialog"},
        {ui->actionAbout, "About...", "Open About dialog"},
        {ui->actionReloadFailed, "Reload Failed", "Reload failed tasks and resets status to Pending"},
    };
    for (const auto &a : actions) {
        a.action->setText(NM_TR(a.text));
        a.action->setToolTip(NM_TR(a.toolTip));
    }
    ui->_phraseLbl->setText(NM_TR("Passphrase"));
    ui->_decryptBtn->setText(NM_TR("Decrypt"));
    ui->_showPassCheck->setText(NM_TR("Show passphrase"));
    ui->label->setText(NM_TR("View:"));
    ui->_viewComboBox->clear();
    ui->_viewComboBox->insertItems(0, {NM_TR("Latest"), NM_TR("Finished"), NM_TR("Failed")});
    // The selector's column is 150 wide, unless a language needs more for its views.
    ui->widget_2->setMaximumWidth(qMax(150, ui->_viewComboBox->sizeHint().width() + ui->verticalLayout_5->contentsMargins().left()
                                                + ui->verticalLayout_5->contentsMargins().right()));
    ui->menuFile->setTitle(NM_TR("File"));
    ui->menuCommands->setTitle(NM_TR("Options"));
    ui->menuAbout->setTitle(NM_TR("About"));
    ui->_phraseTxt->setToolTip(NM_TR("Enter Passphrase"));
    showDecryptButtonState(ui->_decryptBtn->isChecked());
    applyMnemonics();
}

void MainWindow::show()
{
    QMainWindow::show();
    raise();
    activateWindow();
    // Typing the passphrase and pressing Return is the first thing to do.
    ui->_phraseTxt->setFocus(Qt::OtherFocusReason);
}

void MainWindow::onSetTitle(QString newTitle)
{
    setWindowTitle(newTitle);
}

void MainWindow::onProgressTimer()
{
    // Progress reaches the window through the decrypt manager's signals.
}

void MainWindow::onShowSettings()
{
    SettingsDialog::instance()->show();
}

void MainWindow::onShowAbout()
{
    AboutWindow::instance()->show();
}

void MainWindow::showPassword(bool on)
{
    ui->_phraseTxt->setEchoMode(on ? QLineEdit::Normal : QLineEdit::Password);
}

void MainWindow::onEnterPressed()
{
    // Enter in the passphrase field does not start a decryption by itself.
    qDebug() << "enter pressed";
}

void MainWindow::loadSettings()
{
    if (settings.contains(QLatin1String(currentDirKey)))
        currentDir = settings.value(QLatin1String(currentDirKey)).toString();
}

void MainWindow::saveSettings()
{
    settings.setValue(QLatin1String(currentDirKey), currentDir);
}

QMenu *MainWindow::createPopupMenu()
{
    return nullptr;
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // The title bar's close button behaves as the Exit command.
    event->ignore();
    onExitTriggered();
}

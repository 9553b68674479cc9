#include "SettingsDialog.h"

#include "GuiSupport.h"
#include "ui_SettingsDialog.h"

#include <localization/LocaleLoader.h>
#include <localization/LocaleText.h>

#include <QPushButton>
#include <QThread>

static const char *const deleteEncryptedKey = "settings/deleteEncrypted";
static const char *const threadIndexKey = "settings/threadIndex";

SettingsDialog *SettingsDialog::instance()
{
    static SettingsDialog *dialog = new SettingsDialog;
    return dialog;
}

SettingsDialog::SettingsDialog()
    : QDialog(nullptr)
    , ui(new Ui::SettingsDialog)
{
    Nmb::Gui::initResources();
    ui->setupUi(this);

    setWindowModality(Qt::ApplicationModal);
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint
                   | Qt::WindowCloseButtonHint);
    setWindowIcon(QIcon(QStringLiteral(":/crypt/crypt.png")));

    connect(ui->buttonBox, &QDialogButtonBox::rejected, this, &SettingsDialog::rejected);
    connect(ui->buttonBox, &QDialogButtonBox::accepted, this, &SettingsDialog::saveSettings);
    connect(ui->_threadsCombo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &SettingsDialog::onNumThreadsChanged);
    // Escape and the title bar's close button reject the dialog without
    // passing through the button box; they undo the changes as Cancel does.
    connect(this, &QDialog::rejected, this, &SettingsDialog::rejected);

    loadSettings();

    okButton = ui->buttonBox->button(QDialogButtonBox::Ok);
    cancelButton = ui->buttonBox->button(QDialogButtonBox::Cancel);

    loadLocaleStrings();
    applyLocalizedTexts();
}

SettingsDialog::~SettingsDialog() = default;

void SettingsDialog::applyLocalizedTexts()
{
    setWindowTitle(NM_TR("Settings"));
    okButton->setText(NM_TR("OK"));
    cancelButton->setText(NM_TR("Cancel"));
    ui->_deleteEncryptedCheck->setText(NM_TR("Delete encrypted files when finished"));
    ui->_deleteEncryptedCheck->setToolTip(
        NM_TR("Deletes each encrypted file once its plaintext is saved in full. The encrypted "
              "format has no integrity check: a damaged file decrypts to wrong bytes without any "
              "error, so keep a copy of files that matter."));
    ui->_threadsCombo->clear();
    ui->_threadsCombo->insertItems(0, {NM_TR("1"), NM_TR("2"), NM_TR("4"), NM_TR("8")});
    ui->label->setText(NM_TR("Number of concurrent threads for decryption"));
    // Two lines where one is too narrow (a larger font, a longer language).
    ui->label->setWordWrap(true);
}

int SettingsDialog::numThreads() const
{
    return ui->_threadsCombo->currentText().toInt(nullptr, 10);
}

bool SettingsDialog::deleteEncrypted() const
{
    return ui->_deleteEncryptedCheck->isChecked();
}

void SettingsDialog::show()
{
    Nmb::Gui::postAccessibleFocus(this);
    ui->groupBox->setFocus();
    QThread::yieldCurrentThread();
    saveSettings();
    QDialog::show();
}

void SettingsDialog::onNumThreadsChanged(int idx)
{
    emit numThreadChanged(idx);
}

void SettingsDialog::rejected()
{
    ui->_threadsCombo->setCurrentIndex(storedThreadIndex);
    ui->_deleteEncryptedCheck->setChecked(storedDeleteEncrypted);
}

void SettingsDialog::saveSettings()
{
    storedDeleteEncrypted = ui->_deleteEncryptedCheck->isChecked();
    storedThreadIndex = ui->_threadsCombo->currentIndex();
    settings.setValue(QLatin1String(deleteEncryptedKey), storedDeleteEncrypted);
    settings.setValue(QLatin1String(threadIndexKey), storedThreadIndex);
}

void SettingsDialog::loadSettings()
{
    if (settings.contains(QLatin1String(deleteEncryptedKey)))
        ui->_deleteEncryptedCheck->setChecked(settings.value(QLatin1String(deleteEncryptedKey)).toBool());
    storedDeleteEncrypted = ui->_deleteEncryptedCheck->isChecked();
    if (settings.contains(QLatin1String(threadIndexKey)))
        ui->_threadsCombo->setCurrentIndex(settings.value(QLatin1String(threadIndexKey)).toInt());
    storedThreadIndex = ui->_threadsCombo->currentIndex();
}

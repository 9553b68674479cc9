// The settings dialog and the two settings it edits: whether envelopes are
// deleted after a successful decryption and how many threads decrypt at
// once. OK saves, Cancel (or closing) puts the last saved state back.
#pragma once

#include <QDialog>
#include <QSettings>

#include <memory>

namespace Ui {
class SettingsDialog;
}

class QPushButton;

class SettingsDialog : public QDialog
{
    Q_OBJECT

public:
    // The process-wide instance, created on first use and kept until exit.
    static SettingsDialog *instance();

    SettingsDialog();
    ~SettingsDialog() override;

    // The chosen thread count: the current combo item read as a number.
    int numThreads() const;
    bool deleteEncrypted() const;

signals:
    void numThreadChanged(int value);

public slots:
    // Remembers and writes the state at opening, then shows the dialog
    // without blocking.
    void show();
    // Passes the combo index on as it is (not the count it stands for).
    void onNumThreadsChanged(int idx);

private slots:
    void rejected();
    void saveSettings();
    void loadSettings();

private:
    void applyLocalizedTexts();

    std::unique_ptr<Ui::SettingsDialog> ui;
    QPushButton *okButton = nullptr;
    QPushButton *cancelButton = nullptr;
    int storedThreadIndex = 0;
    bool storedDeleteEncrypted = false;
    QSettings settings;
};

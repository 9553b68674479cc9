// The modal "Processing..." box shown while a background list operation
// runs; its Cancel button, Escape and the close button all ask that
// operation to stop.
#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class BusyDialog;
}

class QMovie;

class BusyDialog : public QDialog
{
    Q_OBJECT

public:
    // The process-wide instance, created on first use.
    static BusyDialog *instance();

    BusyDialog();
    ~BusyDialog() override;

signals:
    void cancelled();

public slots:
    // Shows msg (and the Cancel button when showCancel) and runs the dialog
    // modally until it is hidden, accepted or closed.
    void execute(QString msg, bool showCancel = true);
    // Hides the dialog and emits cancelled().
    void onCancel();

protected:
    void closeEvent(QCloseEvent *event) override;
    // The dialog has no window frame; it draws a thin border of its own.
    void paintEvent(QPaintEvent *event) override;

private:
    void applyLocalizedTexts();

    std::unique_ptr<Ui::BusyDialog> ui;
    QMovie *movie;
};

#include "BusyDialog.h"

#include "GuiSupport.h"
#include "ui_BusyDialog.h"

#include <localization/LocaleText.h>

#include <QMovie>
#include <QPainter>

BusyDialog *BusyDialog::instance()
{
    static BusyDialog *dialog = new BusyDialog;
    return dialog;
}

BusyDialog::BusyDialog()
    : QDialog(nullptr)
    , ui(new Ui::BusyDialog)
{
    Nmb::Gui::initResources();
    ui->setupUi(this);

    movie = new QMovie(QStringLiteral(":/crypt/loaderAnimated.gif"), QByteArray(), this);
    ui->_animatedLbl->setMovie(movie);
    movie->start();

    connect(ui->_cancelBtn, &QPushButton::clicked, this, &BusyDialog::onCancel);
    connect(this, &QDialog::rejected, this, &BusyDialog::onCancel);

    setWindowIcon(QIcon(QStringLiteral(":/crypt/crypt.png")));
    setWindowFlags(Qt::Window | Qt::MSWindowsFixedSizeDialogHint | Qt::WindowTitleHint
                   | Qt::FramelessWindowHint);
    setWindowTitle(QStringLiteral("Processing"));

    applyLocalizedTexts();
}

BusyDialog::~BusyDialog() = default;

void BusyDialog::applyLocalizedTexts()
{
    ui->_cancelBtn->setText(NM_TR("Cancel"));
    ui->_label->setText(NM_TR("Processing..."));
}

void BusyDialog::execute(QString msg, bool showCancel)
{
    ui->_label->setText(msg);
    ui->_cancelBtn->setVisible(showCancel);
    // A second announcement while the dialog runs (a new phase, or
    // "Cancelling...") only changes what it shows.
    if (isVisible())
        return;
    exec();
}

void BusyDialog::onCancel()
{
    hide();
    emit cancelled();
}

void BusyDialog::closeEvent(QCloseEvent *event)
{
    QDialog::closeEvent(event);
}

void BusyDialog::paintEvent(QPaintEvent *event)
{
    QDialog::paintEvent(event);
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

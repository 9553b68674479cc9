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

    // A movie has no high-DPI variant lookup of its own: on a dense screen it
    // reads the twice-as-large frames, which the "@2x" name marks as such, so
    // they fill the same logical size (scaling them to the label would draw
    // them at half size). A dark palette gets the animation in dark colours.
    const bool dark = palette().color(QPalette::Window).lightness() < 128;
    const QString name = dark ? QStringLiteral(":/crypt/loaderAnimatedDark") : QStringLiteral(":/crypt/loaderAnimated");
    movie = new QMovie(name + (devicePixelRatioF() > 1.0 ? QStringLiteral("@2x.gif") : QStringLiteral(".gif")),
                       QByteArray(), this);
    ui->_animatedLbl->setMovie(movie);
    movie->start();

    connect(ui->_cancelBtn, &QPushButton::clicked, this, &BusyDialog::onCancel);
    connect(this, &QDialog::rejected, this, &BusyDialog::onCancel);

    setWindowIcon(QIcon(QStringLiteral(":/crypt/crypt.png")));
    setWindowFlags(Qt::Window | Qt::MSWindowsFixedSizeDialogHint | Qt::WindowTitleHint
                   | Qt::FramelessWindowHint);
    setWindowTitle(QStringLiteral("Processing"));
    // Room for two lines above the animation: some messages are long in
    // some languages.
    const QRect text = ui->_label->geometry();
    ui->_label->setGeometry(text.x(), text.y(), width() - text.x() - 12, ui->_animatedLbl->y() - text.y() - 4);
    ui->_label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    ui->_label->setWordWrap(true);

    applyLocalizedTexts();
}

BusyDialog::~BusyDialog() = default;

void BusyDialog::applyLocalizedTexts()
{
    ui->_cancelBtn->setText(NM_TR("Cancel"));
    ui->_label->setText(NM_TR("Processing..."));
    // The form places the button for a short English word; a longer one
    // widens it to the left, staying clear of the dialog's right edge.
    const QRect place = ui->_cancelBtn->geometry();
    const int width = qMax(place.width(), ui->_cancelBtn->sizeHint().width());
    const int left = qMin(place.x(), this->width() - (this->width() - place.right() - 1) / 2 - width);
    ui->_cancelBtn->setGeometry(left, place.y(), width, place.height());
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

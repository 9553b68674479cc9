#include "AboutWindow.h"

#include "GuiSupport.h"
#include "ui_AboutWindow.h"
#include "Version.h"

#include <localization/LocaleText.h>

#include <QAction>
#include <QCoreApplication>
#include <QThread>

AboutWindow *AboutWindow::instance()
{
    static AboutWindow *window = new AboutWindow;
    return window;
}

AboutWindow::AboutWindow()
    : QDialog(nullptr)
    , ui(new Ui::AboutWindow)
{
    Nmb::Gui::initResources();
    ui->setupUi(this);

    setWindowModality(Qt::ApplicationModal);
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint
                   | Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint);
    setWindowIcon(QIcon(QStringLiteral(":/crypt/crypt.png")));
    setWindowTitle(NM_TR("About - Orn Nimbra Crypt"));

    auto *closeAction = new QAction(this);
    closeAction->setShortcut(QKeySequence::Close);
    connect(closeAction, &QAction::triggered, this, &QWidget::close);
    addAction(closeAction);

    ui->versionLbl->setText(NM_TR("Internal (%s)", NM_VERSION));

    // A pure black background means a dark theme, where the copyright line's
    // default colour would be unreadable.
    if (palette().color(backgroundRole()).black() == 255)
        ui->label_3->setStyleSheet(QStringLiteral("QLabel {color:rgb(208,208,208)}"));

    Nmb::Gui::centreOnPrimaryScreen(this);
    layout()->setSizeConstraint(QLayout::SetFixedSize);

    applyLocalizedTexts();
}

AboutWindow::~AboutWindow() = default;

void AboutWindow::applyLocalizedTexts()
{
    const QByteArray appName = QCoreApplication::applicationName().toUtf8();
    setWindowTitle(NM_TR("About - %s", appName.constData()));
    // The group takes the focus when the window opens; a screen reader names it.
    ui->groupBox->setAccessibleName(windowTitle());
    ui->label->setText(NM_TR("Orn Nimbra Crypt"));
    ui->versionLbl->setText(NM_TR("Release (%s)", NM_VERSION));
    ui->label_3->setText(NM_TR("Copyright (c) 2026 Nimbra. All rights reserved."));
}

void AboutWindow::showEvent(QShowEvent *)
{
    Nmb::Gui::postAccessibleFocus(this);
    ui->groupBox->setFocus();
    QThread::yieldCurrentThread();
    QThread::sleep(2);
    ui->label_3->setFocus();
}

#include "DeveloperHooks.h"

#include "AboutWindow.h"
#include "BusyDialog.h"
#include "MainWindow.h"
#include "SettingsDialog.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QTimer>

#include <cstdio>

namespace {

QString outputDir()
{
    return qEnvironmentVariable("NM_SCREENSHOT_DIR");
}

// The window with any visible dialog drawn over it where the screen shows it.
void save(QWidget *window, const QString &name, QWidget *over = nullptr)
{
    QPixmap shot = window->grab();
    if (over) {
        QPainter painter(&shot);
        painter.drawPixmap(over->geometry().topLeft() - window->geometry().topLeft(), over->grab());
    }
    shot.save(outputDir() + QLatin1Char('/') + name + QStringLiteral(".png"));
}

void after(int ms, const std::function<void()> &step)
{
    QTimer::singleShot(ms, qApp, step);
}

void dialogsScene(MainWindow *window)
{
    after(800, [window] {
        save(window, QStringLiteral("main-empty"));
        SettingsDialog::instance()->show();
        after(300, [window] {
            save(SettingsDialog::instance(), QStringLiteral("settings"));
            SettingsDialog::instance()->reject();
            after(300, [window] {
                after(300, [] {
                    save(BusyDialog::instance(), QStringLiteral("busy"));
                    BusyDialog::instance()->accept();
                });
                BusyDialog::instance()->execute(QStringLiteral("Loading files..."), true);
                AboutWindow::instance()->show(); // pauses 2 s while it shows
                after(300, [] {
                    save(AboutWindow::instance(), QStringLiteral("about"));
                    QCoreApplication::exit(0);
                });
            });
        });
    });
}

void batchStep(MainWindow *window, int shots)
{
    DecryptManager *manager = DecryptManager::instance();
    auto *button = window->findChild<QPushButton *>(QStringLiteral("_decryptBtn"));
    auto *box = window->findChild<QMessageBox *>();
    if (shots == 0 && button->isEnabled() && !button->isChecked()) {
        window->findChild<QLineEdit *>(QStringLiteral("_phraseTxt"))
            ->setText(qEnvironmentVariable("NM_SCREENSHOT_PASSPHRASE"));
        button->click();
    } else if (shots == 0 && manager->finishedCount() >= 2 && manager->runningCount() > 0) {
        save(window, QStringLiteral("main-batch"));
        ++shots;
    } else if (shots == 1 && box && box->isVisible()) {
        save(window, QStringLiteral("main-finished-question"), box);
        box->button(QMessageBox::Cancel)->click();
        ++shots;
    } else if (shots == 2 && !button->isChecked()) {
        save(window, QStringLiteral("main-finished"));
        QCoreApplication::exit(0);
        return;
    }
    after(40, [window, shots] { batchStep(window, shots); });
}

void reportWhenLoaded(MainWindow *window)
{
    if (TaskManager::instance()->isRunning() || BusyDialog::instance()->isVisible()) {
        after(20, [window] { reportWhenLoaded(window); });
        return;
    }
    const QStringList pending = DecryptManager::instance()->pendingPaths();
    QString report = QStringLiteral("title=%1\npending=%2\n").arg(window->windowTitle()).arg(pending.size());
    for (const QString &path : pending)
        report += QStringLiteral("path=") + path + QLatin1Char('\n');
    std::fputs(report.toUtf8().constData(), stdout);
    std::fflush(stdout);
    QCoreApplication::exit(0);
}

} // namespace

namespace Nmb {
namespace Gui {

void installDeveloperHooks(MainWindow *window)
{
    if (qEnvironmentVariableIsSet("NM_REPORT_AND_QUIT"))
        after(0, [window] { reportWhenLoaded(window); });
    if (outputDir().isEmpty())
        return;
    if (qEnvironmentVariable("NM_SCREENSHOT_SCENE") == QLatin1String("batch"))
        after(800, [window] { batchStep(window, 0); });
    else
        dialogsScene(window);
}

} // namespace Gui
} // namespace Nmb

// The program, started as usual, with a scripted scene that photographs its
// windows (QWidget::grab) into a folder and then quits:
//   nimbra-crypt-shots [--dark] dialogs OUT-DIR
//       the empty window, the settings, busy and About dialogs;
//   nimbra-crypt-shots [--dark] batch OUT-DIR PASSPHRASE FOLDER
//       loads FOLDER, types PASSPHRASE, presses Decrypt and photographs the
//       window mid-batch, with the end-of-batch question, at the end and
//       with the keyboard focus in the table.
// --dark gives the program a dark desktop palette, as a dark theme would.
// The language and the scale come from the environment (LC_ALL,
// QT_SCALE_FACTOR).
#include <AboutWindow.h>
#include <BusyDialog.h>
#include <MainWindow.h>
#include <Program.h>
#include <SettingsDialog.h>

#include <engine/DecryptManager.h>
#include <localization/LocaleText.h>

#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QTableWidget>
#include <QTimer>

#include <cstdio>
#include <cstring>

namespace {

QString outputDir;
QString passphrase;

// The window with a dialog drawn over it where the screen shows it.
void save(QWidget *window, const QString &name, QWidget *over = nullptr)
{
    QPixmap shot = window->grab();
    if (over) {
        QPainter painter(&shot);
        painter.drawPixmap(over->geometry().topLeft() - window->geometry().topLeft(), over->grab());
    }
    const QString path = outputDir + QLatin1Char('/') + name + QStringLiteral(".png");
    if (!shot.save(path))
        std::fprintf(stderr, "nimbra-crypt-shots: cannot write %s\n", qPrintable(path));
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
        after(300, [] {
            save(SettingsDialog::instance(), QStringLiteral("settings"));
            SettingsDialog::instance()->reject();
            after(300, [] {
                after(300, [] {
                    save(BusyDialog::instance(), QStringLiteral("busy"));
                    BusyDialog::instance()->accept();
                });
                BusyDialog::instance()->execute(NM_TR("Loading files..."), true);
                AboutWindow::instance()->show(); // pauses 2 s while it shows
                after(300, [] {
                    save(AboutWindow::instance(), QStringLiteral("about"));
                    QCoreApplication::exit(0);
                });
            });
        });
    });
}

// Polls the window until each picture's moment has come.
void batchStep(MainWindow *window, int shots)
{
    DecryptManager *manager = DecryptManager::instance();
    auto *button = window->findChild<QPushButton *>(QStringLiteral("_decryptBtn"));
    auto *box = window->findChild<QMessageBox *>();
    if (shots == 0 && button->isEnabled() && !button->isChecked()) {
        window->findChild<QLineEdit *>(QStringLiteral("_phraseTxt"))->setText(passphrase);
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
        // Where the keyboard focus shows when Tab reaches the table; without a
        // window manager nothing gives the window back its activation once
        // the question has closed.
        QApplication::setActiveWindow(window);
        window->findChild<QTableWidget *>(QStringLiteral("_messagesTbl"))->setFocus(Qt::TabFocusReason);
        after(200, [window] {
            save(window, QStringLiteral("main-table-focus"));
            QCoreApplication::exit(0);
        });
        return;
    }
    after(40, [window, shots] { batchStep(window, shots); });
}

int usage()
{
    std::fputs("usage: nimbra-crypt-shots [--dark] dialogs OUT-DIR\n"
               "       nimbra-crypt-shots [--dark] batch OUT-DIR PASSPHRASE FOLDER\n",
               stderr);
    return 2;
}

// A palette like the dark themes of the common desktops.
QPalette darkPalette()
{
    const QColor window(49, 54, 59), base(35, 38, 41), text(239, 240, 241), dim(127, 140, 141);
    QPalette palette(window, window);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::ToolTipBase, window);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText})
        palette.setColor(role, text);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, dim);
    palette.setColor(QPalette::Highlight, QColor(61, 174, 233));
    palette.setColor(QPalette::HighlightedText, QColor(252, 252, 252));
    palette.setColor(QPalette::Link, QColor(41, 128, 185));
    return palette;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && std::strcmp(argv[1], "--dark") == 0) {
        // Before the application object, as a desktop theme's palette is.
        QApplication::setPalette(darkPalette());
        argv[1] = argv[0];
        ++argv;
        --argc;
    }
    const bool batch = argc == 5 && std::strcmp(argv[1], "batch") == 0;
    if (!batch && !(argc == 3 && std::strcmp(argv[1], "dialogs") == 0))
        return usage();
    outputDir = QString::fromLocal8Bit(argv[2]);
    // The program sees only the folder to load, as if started on it.
    char *programArgs[] = {argv[0], batch ? argv[4] : nullptr, nullptr};
    if (batch)
        passphrase = QString::fromLocal8Bit(argv[3]);
    return runProgram(batch ? 2 : 1, programArgs, [batch](MainWindow *window) {
        if (batch)
            after(800, [window] { batchStep(window, 0); });
        else
            dialogsScene(window);
    });
}

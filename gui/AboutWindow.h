// The About box: the icon, the product title, the release number and the
// copyright line.
#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class AboutWindow;
}

class AboutWindow : public QDialog
{
    Q_OBJECT

public:
    // The process-wide instance, created on first use.
    static AboutWindow *instance();

    AboutWindow();
    ~AboutWindow() override;

protected:
    // Announces the window to accessibility tools and moves the focus to the
    // copyright line after a pause, so that screen readers read the whole box.
    void showEvent(QShowEvent *event) override;

private:
    void applyLocalizedTexts();

    std::unique_ptr<Ui::AboutWindow> ui;
};

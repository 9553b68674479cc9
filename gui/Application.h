// The application object: a QApplication that also loads the files that
// the operating system asks it to open while it runs.
#pragma once

#include <QApplication>

class Application : public QApplication
{
    Q_OBJECT

public:
    Application(int &argc, char **argv);

protected:
    // Handles the file-open event (envelopes only); every other event goes
    // to QApplication.
    bool event(QEvent *event) override;
};

// SIGINT, SIGTERM and SIGHUP turned into a signal of the event loop, so that
// they stop a batch the way the window's Stop button does instead of killing
// the process halfway through a file. The handler only writes one byte to a
// pipe (the self-pipe idiom); a QSocketNotifier on the pipe's other end
// reports it on the thread that created this object.
//
// While it lives SIGPIPE is ignored as well: a reader of standard output that
// goes away (| head) must not kill a batch either. The handlers are installed
// without SA_RESTART, so a blocking read on the terminal returns EINTR and
// can look at raised().
#pragma once

#include <QObject>

#include <signal.h>

class QSocketNotifier;

namespace cli {

class StopSignals : public QObject
{
    Q_OBJECT
public:
    // Installs the handlers; at most one instance at a time.
    explicit StopSignals(QObject *parent = nullptr);
    // Puts the previous handlers back.
    ~StopSignals() override;

    // Whether a stop signal has arrived since the instance was made.
    // Async-signal-safe to set, safe to read anywhere.
    static bool raised();

signals:
    // On the creating thread's event loop, after one or more signals came.
    void stopRequested();

private slots:
    void onReadable();

private:
    int m_pipe[2] = {-1, -1};
    QSocketNotifier *m_notifier = nullptr;
    struct sigaction m_previous[4];
};

} // namespace cli

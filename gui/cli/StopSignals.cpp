#include "StopSignals.h"

#include <QSocketNotifier>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace cli {

namespace {

const int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

volatile sig_atomic_t s_raised = 0;
volatile sig_atomic_t s_writeEnd = -1;

void onSignal(int)
{
    const int savedErrno = errno;
    s_raised = 1;
    const char byte = 1;
    // A full pipe already holds a wake-up, so a failed write loses nothing.
    if (s_writeEnd >= 0) {
        const ssize_t ignored = ::write(s_writeEnd, &byte, 1);
        (void)ignored;
    }
    errno = savedErrno;
}

} // namespace

StopSignals::StopSignals(QObject *parent) : QObject(parent)
{
    s_raised = 0;
    if (::pipe2(m_pipe, O_CLOEXEC | O_NONBLOCK) == 0) {
        s_writeEnd = m_pipe[1];
        m_notifier = new QSocketNotifier(m_pipe[0], QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &StopSignals::onReadable);
    }
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: a blocking read sees EINTR
    for (int i = 0; i < 4; ++i) {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(kSignals[i], kSignals[i] == SIGPIPE ? &ignore : &action, &m_previous[i]);
    }
}

StopSignals::~StopSignals()
{
    for (int i = 0; i < 4; ++i)
        ::sigaction(kSignals[i], &m_previous[i], nullptr);
    s_writeEnd = -1;
    delete m_notifier;
    for (int fd : m_pipe) {
        if (fd >= 0)
            ::close(fd);
    }
}

bool StopSignals::raised()
{
    return s_raised != 0;
}

void StopSignals::onReadable()
{
    char bytes[64];
    ssize_t count;
    bool seen = false;
    while ((count = ::read(m_pipe[0], bytes, sizeof bytes)) > 0 || (count < 0 && errno == EINTR))
        seen = seen || count > 0;
    if (seen)
        emit stopRequested();
}

} // namespace cli

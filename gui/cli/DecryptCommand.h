// "--decrypt [options] PATH...": decrypts without a window, with the engine
// the window uses. The paths are loaded as a window load with only envelopes
// kept does (the task manager walks folders and recognises envelopes), the
// decrypt manager runs the batch on its worker pool with the same output
// naming and completion, and the envelopes are deleted after success when
// asked. SIGINT, SIGTERM and SIGHUP stop the batch as the Stop button does.
//
// Exit codes, as the window's Exit command: 0 everything finished, -2 some
// failed and nothing is pending, -3 nothing failed but something is pending
// (interrupted), -4 both; -1 for a usage error or an unusable passphrase.
#pragma once

#include "DecryptOptions.h"

#include <QEventLoop>
#include <QObject>

class CryptTask;
class DecryptManager;
class TaskManager;

namespace cli {

class BatchReport;

// The whole command, from the arguments to the exit code. Needs a
// QCoreApplication; never opens the window's settings store.
int runDecryptCommand(const QStringList &args);

// One run: load, decrypt, report. Uses the process-wide task manager and
// decrypt manager, which the caller releases afterwards.
class DecryptSession : public QObject
{
    Q_OBJECT
public:
    // passphrase is wiped as soon as the batch has ended.
    DecryptSession(const DecryptOptions &options, Passphrase *passphrase);
    ~DecryptSession() override;

    // Runs its own event loop until the batch has ended; the exit code.
    int run();

public slots:
    // Stops the load or the batch; the run then ends as interrupted.
    void stop();

private slots:
    void onFilesLoaded(const QString &summary);
    void onLoadEnded();
    void onTaskChanged(const CryptTask *task);
    void onError(const QString &message);
    void onAllFinished();
    void finish();

private:
    enum class Phase { Loading, Decrypting, Ended };

    void connectEngine();
    int exitCode();

    DecryptOptions m_options;
    Passphrase *m_passphrase;
    DecryptManager *m_manager;
    TaskManager *m_tasks;
    BatchReport *m_report;
    QEventLoop m_loop;
    Phase m_phase = Phase::Loading;
    bool m_interrupted = false;
};

} // namespace cli

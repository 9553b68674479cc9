// What "--decrypt" prints. Standard output: one line per task that finished
// or failed, with the status text of the window's table, then the summary
// line of the window's status bar. Standard error: errors, notes, and (only
// when it is a terminal, and not quiet) a progress line redrawn in place.
// All texts come from the locale table.
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

class CryptTask;
class DecryptManager;

namespace cli {

class BatchReport : public QObject
{
    Q_OBJECT
public:
    // quiet: only failed tasks, errors and the summary.
    BatchReport(DecryptManager *manager, bool quiet, QObject *parent = nullptr);

    // The manager's pending paths make up the batch whose progress is shown.
    void beginBatch();
    // Prints task's line once it has ended (Finished or Error) and left its
    // worker, so that a finished task's line names its final output.
    void taskChanged(const CryptTask *task);
    // Prints the lines still owed for the manager's finished and failed tasks.
    void flushEnded();
    // A problem: always printed.
    void error(const QString &message);
    // Information beside the task lines: not printed when quiet.
    void note(const QString &message);
    // The summary line; ends the progress line for good.
    void summary();

    // "<percent>% <done> of <total> files, <rate> MB/s, <time> left".
    static QString progressText(qint64 doneBytes, qint64 totalBytes, int doneFiles, int totalFiles,
                                qint64 elapsedMs);

private slots:
    void onProgressTimer();

private:
    void printTaskLine(const CryptTask *task);
    void clearProgress();

    DecryptManager *m_manager;
    bool m_quiet;
    bool m_showProgress;
    bool m_progressShown = false;
    QSet<const CryptTask *> m_printed;
    QHash<QString, qint64> m_sizes; // by the path as loaded
    qint64 m_totalBytes = 0;
    qint64 m_doneBytes = 0;
    int m_totalFiles = 0;
    QElapsedTimer m_clock;
    QTimer m_timer;
};

} // namespace cli

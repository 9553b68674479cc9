#include "BatchReport.h"

#include "Windowless.h"

#include <engine/DecryptManager.h>
#include <localization/LocaleText.h>

#include <QFileInfo>

#include <cstdio>

#include <unistd.h>

namespace cli {

namespace {

// Erases the line the cursor is on and returns to its start.
const char kEraseLine[] = "\r\033[K";

QByteArray number(qint64 value)
{
    return QByteArray::number(value);
}

QString twoDigits(qint64 value)
{
    return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
}

// "m:ss", or "h:mm:ss" from an hour on.
QString clockText(qint64 seconds)
{
    if (seconds < 3600)
        return QString::number(seconds / 60) + QLatin1Char(':') + twoDigits(seconds % 60);
    return QString::number(seconds / 3600) + QLatin1Char(':') + twoDigits(seconds / 60 % 60) + QLatin1Char(':')
        + twoDigits(seconds % 60);
}

} // namespace

BatchReport::BatchReport(DecryptManager *manager, bool quiet, QObject *parent)
    : QObject(parent), m_manager(manager), m_quiet(quiet), m_showProgress(!quiet && ::isatty(STDERR_FILENO))
{
    m_timer.setInterval(500);
    connect(&m_timer, &QTimer::timeout, this, &BatchReport::onProgressTimer);
}

void BatchReport::beginBatch()
{
    const QStringList paths = m_manager->pendingPaths();
    for (const QString &path : paths) {
        const qint64 size = QFileInfo(path).size();
        m_sizes.insert(path, size);
        m_totalBytes += size;
    }
    m_totalFiles += paths.size();
    m_clock.start();
    if (m_showProgress) {
        onProgressTimer(); // at once, so that even a short batch shows it
        m_timer.start();
    }
}

void BatchReport::taskChanged(const CryptTask *task)
{
    const Task::STATUS status = task->status();
    if ((status == Task::Finished || status == Task::Error) && !m_printed.contains(task)
        && !m_manager->runningTasks().contains(const_cast<CryptTask *>(task)))
        printTaskLine(task);
}

void BatchReport::flushEnded()
{
    for (const QList<CryptTask *> &tasks : {m_manager->finishedTasks(), m_manager->failedTasks()}) {
        for (const CryptTask *task : tasks) {
            if (!m_printed.contains(task))
                printTaskLine(task);
        }
    }
}

void BatchReport::printTaskLine(const CryptTask *task)
{
    m_printed.insert(task);
    m_doneBytes += m_sizes.value(task->addedPath());
    if (m_quiet && task->status() != Task::Error)
        return;
    clearProgress();
    // Joined here, not in a looked-up format, whose length is bounded.
    printLine(task->addedPath() + QStringLiteral(": ") + task->statusText());
}

void BatchReport::error(const QString &message)
{
    clearProgress();
    printErrorLine(message);
}

void BatchReport::note(const QString &message)
{
    if (!m_quiet)
        error(message);
}

void BatchReport::summary()
{
    m_timer.stop();
    clearProgress();
    // The window's key has a margin before the text; a line needs none.
    printLine(NM_TR("   %1$s finished, %2$s failed, %3$s pending, %4$s total",
                    number(m_manager->finishedCount()).constData(), number(m_manager->failedCount()).constData(),
                    number(m_manager->pendingCount()).constData(), number(m_manager->totalCount()).constData())
                  .trimmed());
}

void BatchReport::clearProgress()
{
    if (!m_progressShown)
        return;
    std::fputs(kEraseLine, stderr);
    std::fflush(stderr);
    m_progressShown = false;
}

void BatchReport::onProgressTimer()
{
    qint64 running = 0;
    for (const CryptTask *task : m_manager->runningTasks())
        running += qint64(double(task->progress()) * double(m_sizes.value(task->addedPath())));
    const QString text = progressText(m_doneBytes + running, m_totalBytes, m_printed.size(), m_totalFiles,
                                      m_clock.elapsed());
    std::fputs(kEraseLine, stderr);
    std::fputs(text.toUtf8().constData(), stderr);
    std::fflush(stderr);
    m_progressShown = true;
}

QString BatchReport::progressText(qint64 doneBytes, qint64 totalBytes, int doneFiles, int totalFiles,
                                  qint64 elapsedMs)
{
    const double fraction = totalBytes > 0 ? double(doneBytes) / double(totalBytes)
                                           : (totalFiles > 0 ? double(doneFiles) / double(totalFiles) : 1.0);
    const double bytesPerSecond = elapsedMs > 0 ? double(doneBytes) * 1000.0 / double(elapsedMs) : 0.0;
    const QString left = bytesPerSecond > 0
        ? clockText(qint64(double(qMax<qint64>(0, totalBytes - doneBytes)) / bytesPerSecond + 0.5))
        : QStringLiteral("-:--");
    return QString::number(qBound(0, int(fraction * 100.0), 100)) + QStringLiteral("% ")
        + NM_TR("%1$s of %2$s files, %3$s MB/s, %4$s left", number(doneFiles).constData(),
                number(totalFiles).constData(),
                QByteArray::number(bytesPerSecond / 1e6, 'f', 1).constData(), left.toUtf8().constData());
}

} // namespace cli

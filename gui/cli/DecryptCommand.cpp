#include "DecryptCommand.h"

#include "BatchReport.h"
#include "StopSignals.h"
#include "Windowless.h"

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>
#include <localization/LocaleText.h>

#include <QFileInfo>

#include <openssl/crypto.h>

namespace cli {

namespace {

QString prefixed(const QString &program, const QString &message)
{
    return program + QStringLiteral(": ") + message;
}

} // namespace

int runDecryptCommand(const QStringList &args)
{
    const QString program = QFileInfo(args.value(0)).fileName();
    DecryptOptions options;
    QString error;
    if (!parseDecryptOptions(args, &options, &error)) {
        printErrorLine(prefixed(program, error));
        return -1;
    }
    // Before the prompt, so that Ctrl+C there gives the terminal its echo back.
    StopSignals stopSignals;
    Passphrase passphrase;
    const Passphrase::Outcome outcome = passphrase.read(options, &error);
    if (outcome == Passphrase::Interrupted)
        return -3;
    if (outcome == Passphrase::Failed) {
        printErrorLine(prefixed(program, error));
        return -1;
    }
    // OpenSSL's one-time set-up leaves an error state with the thread that
    // runs it, freed when that thread ends. Done here, it belongs to the
    // thread that outlives the batch, not to a worker whose end may still be
    // under way when the process exits.
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
    int code = 0;
    {
        DecryptSession session(options, &passphrase);
        QObject::connect(&stopSignals, &StopSignals::stopRequested, &session, &DecryptSession::stop);
        code = session.run();
    }
    // Waits for the threads; the tasks go, with their copies of the passphrase.
    TaskManager::release();
    DecryptManager::release();
    return code;
}

DecryptSession::DecryptSession(const DecryptOptions &options, Passphrase *passphrase)
    : m_options(options),
      m_passphrase(passphrase),
      m_manager(DecryptManager::instance()),
      m_tasks(TaskManager::instance()),
      m_report(new BatchReport(m_manager, options.quiet, this))
{
}

DecryptSession::~DecryptSession() = default;

int DecryptSession::run()
{
    connectEngine();
    m_tasks->loadFiles(m_options.paths, true);
    return m_loop.exec();
}

void DecryptSession::connectEngine()
{
    m_manager->onChangeNumThreads(m_options.threads);
    const bool deleteEncrypted = m_options.deleteEncrypted;
    m_manager->setDeleteEncryptedProvider([deleteEncrypted] { return deleteEncrypted; });
    // Queued, as for the window: the manager emits some of these under its lock.
    connect(m_manager, QOverload<const CryptTask *>::of(&DecryptManager::statsChanged), this,
            &DecryptSession::onTaskChanged, Qt::QueuedConnection);
    connect(m_manager, &DecryptManager::allFinished, this, &DecryptSession::onAllFinished,
            Qt::QueuedConnection);
    connect(m_manager, &DecryptManager::error, this, &DecryptSession::onError, Qt::QueuedConnection);
    connect(m_tasks, &TaskManager::filesLoaded, this, &DecryptSession::onFilesLoaded, Qt::QueuedConnection);
    connect(m_tasks, &QThread::finished, this, &DecryptSession::onLoadEnded, Qt::QueuedConnection);
}

void DecryptSession::stop()
{
    m_interrupted = true;
    if (m_phase == Phase::Loading)
        m_tasks->cancel();
    else if (m_phase == Phase::Decrypting)
        m_manager->stop();
}

void DecryptSession::onFilesLoaded(const QString &summary)
{
    m_report->note(summary);
}

void DecryptSession::onLoadEnded()
{
    if (m_phase != Phase::Loading)
        return;
    m_phase = Phase::Decrypting;
    if (m_interrupted || m_manager->pendingCount() == 0) {
        finish();
        return;
    }
    m_report->beginBatch();
    m_manager->start(m_passphrase->text());
}

void DecryptSession::onTaskChanged(const CryptTask *task)
{
    m_report->taskChanged(task);
}

void DecryptSession::onError(const QString &message)
{
    m_report->error(message);
}

// The reports that the manager sent while it ended the batch (the last
// task's line, errors of its completion) are queued behind this one.
void DecryptSession::onAllFinished()
{
    QMetaObject::invokeMethod(this, &DecryptSession::finish, Qt::QueuedConnection);
}

void DecryptSession::finish()
{
    if (m_phase == Phase::Ended)
        return;
    m_phase = Phase::Ended;
    m_passphrase->wipe();
    m_report->flushEnded();
    m_report->summary();
    m_loop.exit(exitCode());
}

int DecryptSession::exitCode()
{
    const bool failed = m_manager->failedCount() > 0;
    const bool pending = m_manager->pendingCount() > 0;
    if (failed)
        return pending ? -4 : -2;
    return pending || m_interrupted ? -3 : 0;
}

} // namespace cli

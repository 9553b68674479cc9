#include <engine/VextDecryptWorker.h>

#include <QAbstractEventDispatcher>
#include <QFileInfo>

#include <engine/CryptTask.h>
#include <engine/SecretText.h>
#include <localization/LocaleText.h>

#include <nmplatform/nmwipe.h>

#include "EngineText.h"

namespace {

// The event dispatcher of a worker thread. A run has no event loop and no
// timers, and nothing is ever posted to the thread (the worker object lives
// on the GUI thread), yet the toolkit would otherwise build a full dispatcher
// with its own file descriptor at every start and tear it down at every end,
// which costs about as much as decrypting a small file.
class NoLoopDispatcher : public QAbstractEventDispatcher
{
public:
    bool processEvents(QEventLoop::ProcessEventsFlags) override { return false; }
    bool hasPendingEvents() override { return false; }
    void registerSocketNotifier(QSocketNotifier *) override {}
    void unregisterSocketNotifier(QSocketNotifier *) override {}
    void registerTimer(int, int, Qt::TimerType, QObject *) override {}
    bool unregisterTimer(int) override { return false; }
    bool unregisterTimers(QObject *) override { return false; }
    QList<TimerInfo> registeredTimers(QObject *) const override { return {}; }
    int remainingTime(int) override { return -1; }
    void wakeUp() override {}
    void interrupt() override {}
    void flush() override {}
};
} // namespace

VextDecryptWorker::VextDecryptWorker(unsigned index, QObject *parent)
    : QThread(parent), m_index(index)
{
    // Direct, so the completion runs on the worker thread right after run()
    // and before the thread counts as stopped.
    connect(this, &QThread::finished, this, &VextDecryptWorker::onFinished,
            Qt::DirectConnection);
}

VextDecryptWorker::~VextDecryptWorker()
{
    m_cancelRequested = true;
    quit();
    wait();
    nm_crypto_dec_free(&m_decrypter);
    secret_text::wipe(m_passphrase);
}

void VextDecryptWorker::startTask(CryptTask *task)
{
    m_task.store(task);
    if (!task) {
        fail(ResultBadSource, NM_TR("Invalid file"));
        return;
    }
    task->setWorkerIndex(static_cast<int>(m_index));
    task->setStatus(Task::Decrypting);
    m_sourcePath = task->sourcePath();
    m_outputPath = task->outputPath();
    m_passphrase = secret_text::ownedCopy(task->passphrase());
    // The previous run may still be in its tail, which deletes its
    // dispatcher; start() would wait for that tail anyway. The thread takes
    // ownership of the new dispatcher and deletes it when the run ends.
    wait();
    if (!eventDispatcher())
        setEventDispatcher(new NoLoopDispatcher);
    QThread::start(QThread::LowPriority);
}

void VextDecryptWorker::cancel()
{
    m_cancelRequested = true;
    quit();
    wait(50);
}

void VextDecryptWorker::reset()
{
    if (isRunning()) {
        cancel();
        // The manager resets a worker once it has reported, so only the
        // thread's tail is left; a restart before it ends would be ignored.
        wait();
    }
    QMutexLocker locker(&m_mutex);
    m_cancelRequested = false;
    m_resultCode = ResultOk;
    secret_text::wipe(m_passphrase);
    m_sourcePath.clear();
    m_outputPath.clear();
    m_errorText.clear();
    m_task.store(nullptr);
}

float VextDecryptWorker::fractionDone() const
{
    if (m_bytesTotal == 0)
        return 0.0f;
    return static_cast<float>(m_bytesDone) / static_cast<float>(m_bytesTotal);
}

int VextDecryptWorker::resultCode()
{
    QMutexLocker locker(&m_mutex);
    return m_resultCode;
}

QString VextDecryptWorker::resultText()
{
    QMutexLocker locker(&m_mutex);
    if (m_resultCode == ResultOk)
        return QString();
    QString message;
    if (m_resultCode == ResultOutputFailed)
        message = NM_TR("Could not write to destination.");
    else if (m_resultCode == NM_CRYPTO_CORRUPT)
        message = NM_TR("Input file is corrupted or not encrypted.");
    else
        message = engine_text::lookupRuntime(m_errorText);
    return QLatin1String("(") + message + QLatin1Char(' ') + NM_TR("Code:") + QLatin1Char(' ')
           + QString::number(m_resultCode) + QLatin1String(")");
}

void VextDecryptWorker::fail(int code, const QString &text)
{
    QMutexLocker locker(&m_mutex);
    m_resultCode = code;
    m_errorText = text;
}

void VextDecryptWorker::run()
{
    emit started(this);
    decrypt();
    // What the decrypter, the crypto library and the dynamic linker left on
    // this thread's stack (key schedules, plaintext, saved registers) goes
    // before the thread is handed back.
    nm_wipe_stack();
}

void VextDecryptWorker::decrypt()
{
    // isFile() first: one stat answers it, and exists() then comes from the
    // cache, so the usual case costs a single system call.
    const QFileInfo source(m_sourcePath);
    if (!source.isFile()) {
        fail(ResultBadSource, source.exists() ? NM_TR("Source is not a file.")
                                              : NM_TR("Source file does not exist."));
        return;
    }
    m_bytesTotal += static_cast<quint64>(source.size());

    m_decrypter = nm_crypto_dec_new();
    if (!m_decrypter) {
        fail(ResultNoDecrypter, NM_TR("Could not initialize decrypter."));
        return;
    }
    if (!openEnvelope())
        return;
    if (copyPlaintext(source.size()))
        return;
    // Cancelled between two pieces: the partial output is gone already.
    fail(ResultWriteFailed, NM_TR("Cancelled by user"));
}

// Opens the envelope and records what the decrypter found: L, where the
// trailer stood and the envelope's identity, for the checks before delete.
// The passphrase is needed no longer: both of the worker's copies go.
bool VextDecryptWorker::openEnvelope()
{
    QByteArray passphrase = m_passphrase.toUtf8();
    uint32_t systemError = 0;
    const uint32_t opened = nm_crypto_dec_open(passphrase.constData(),
                                               m_sourcePath.toUtf8().constData(), m_decrypter,
                                               &systemError);
    secret_text::wipe(passphrase);
    secret_text::wipe(m_passphrase);
    if (opened != NM_CRYPTO_OK) {
        failDecrypter(opened);
        return false;
    }
    DecryptRecord &record = m_task.load()->record();
    record.opened = nm_crypto_dec_layout(m_decrypter, &record.layout) == NM_CRYPTO_OK;
    return true;
}

// The decrypter's result and message; the handle goes.
void VextDecryptWorker::failDecrypter(uint32_t result)
{
    fail(static_cast<int>(result), QString::fromUtf8(nm_crypto_dec_error_text(m_decrypter)));
    nm_crypto_dec_free(&m_decrypter);
}

void VextDecryptWorker::onFinished()
{
    CryptTask *const task = m_task.load();
    if (!task)
        return;
    // The status is stored last: the GUI may read the task meanwhile, and
    // whoever sees the final status sees the progress and message with it.
    const int code = resultCode();
    if (code == ResultOk) {
        task->setProgress(1.0f);
        task->setStatus(Task::Finished);
        nm_crypto_dec_free(&m_decrypter);
        emit completed(this);
    } else if (!m_cancelRequested) {
        task->setErrorMessage(resultText());
        task->setStatus(Task::Error);
        emit failed(this);
    } else {
        task->setProgress(fractionDone());
        task->setStatus(Task::Cancelled);
        emit failed(this);
    }
}

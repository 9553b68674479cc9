// Decrypts one CryptTask at a time on a thread of its own and tells the
// manager how it ended. Workers live in a fixed pool and are reused; a worker
// never chooses its next task and is reset by the manager between tasks.
#pragma once

#include <atomic>

#include <QMutex>
#include <QString>
#include <QThread>

#include <nmcrypto/nmcrypto_dec.h>

class CryptTask;
class OutputWriter;

namespace output_naming {
class NameReservations;
}

class VextDecryptWorker : public QThread
{
    Q_OBJECT
public:
    // Failure codes of the worker itself; any other non-zero code is a result
    // of the decrypter passed through unchanged.
    enum ResultCode {
        ResultOk = 0,
        ResultOutputFailed = -1,
        ResultNoDecrypter = -2,
        ResultBadSource = -3,
        ResultWriteFailed = -5 // also a cancelled run
    };

    VextDecryptWorker(unsigned index, QObject *parent);
    ~VextDecryptWorker() override;

    // Borrows task, marks it Decrypting with this worker's index and starts
    // the thread. A null task sets code -3 ("Invalid file") and starts nothing.
    void startTask(CryptTask *task);
    // Asks the run to stop between two pieces; waits at most 50 ms.
    void cancel();
    // Makes the worker ready for the next task. The byte counters stay.
    void reset();
    // The batch's name reservations, shared with the manager; null: none.
    void setNameReservations(output_naming::NameReservations *names) { m_names = names; }
    // Whether the next runs sync each plaintext and its folder to stable
    // storage (asked because the envelope will be deleted). Set between runs.
    void setSyncOutputs(bool on) { m_syncOutputs = on; }

    // The task being run, or null. Safe to read from any thread.
    CryptTask *task() const { return m_task.load(); }
    unsigned index() const { return m_index; }
    // Written plaintext over opened envelope bytes, over the worker's life.
    float fractionDone() const;
    // The text that becomes a failed task's errorMessage, e.g.
    // "(Passphrase doesn't match Code: 1)"; empty on success.
    QString resultText();
    int resultCode();

signals:
    void completed(VextDecryptWorker *worker);
    void failed(VextDecryptWorker *worker); // error or cancel: see the task's status
    void started(VextDecryptWorker *worker);
    void progress(VextDecryptWorker *worker); // declared for listeners, never emitted

public slots:
    void run() override;
    // Runs on the worker thread right after run(): settles the task's status
    // and emits completed or failed exactly once.
    void onFinished();

private:
    void fail(int code, const QString &text);
    void decrypt();
    bool openEnvelope();
    bool copyPlaintext(qint64 sourceSize);
    void failDecrypter(uint32_t result);
    bool placeOutput(OutputWriter &output);
    void completeOutput(OutputWriter &output);
    uint32_t outputMode() const;

    unsigned m_index;
    // Set on the dispatcher thread, read on the GUI thread (progress timer,
    // running tasks) while the worker is busy: atomic.
    std::atomic<CryptTask *> m_task{nullptr};
    QString m_sourcePath;
    QString m_outputPath;
    QString m_passphrase;
    quint64 m_bytesTotal = 0;
    quint64 m_bytesDone = 0;
    int m_resultCode = 0;
    QString m_errorText;
    std::atomic<bool> m_cancelRequested{false};
    nm_crypto_dec_t *m_decrypter = nullptr;
    QMutex m_mutex;
    output_naming::NameReservations *m_names = nullptr;
    bool m_syncOutputs = false;
};

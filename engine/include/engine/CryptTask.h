// One envelope to decrypt: where it is read from, where its plaintext goes,
// the passphrase that opens it and what happened to the names on disk.
// Also a value type, so that a snapshot can travel in a queued signal.
#pragma once

#include <QMetaType>

#include <engine/DecryptRecord.h>
#include <engine/Task.h>

class CryptTask : public Task
{
    Q_OBJECT
public:
    // sourcePath and addedPath both take path; registers the meta-type.
    CryptTask(const QString &path, QObject *parent);
    CryptTask();
    // Copies every field; the copy has no parent and a passphrase of its own.
    CryptTask(const CryptTask &other);
    // Overwrites the passphrase.
    ~CryptTask() override;

    // "Finished -> <output>" when finished, otherwise the base text.
    QString statusText() const override;
    // True for a CryptTask with exactly the same sourcePath.
    bool isSame(const Task *other) const override;

    // Shares the task's characters: use it and let it go, never keep it
    // (keep a secret_text::ownedCopy instead), or the wipe cannot reach it.
    QString passphrase() const { return m_passphrase; }
    QString sourcePath() const { return m_sourcePath; }
    QString addedPath() const { return m_addedPath; }
    QString outputPath() const { return m_outputPath; }
    bool isOutputSuffixed() const { return m_outputSuffixed; }
    bool isPlainInput() const { return m_plainInput; }
    bool isSourceDeleted() const { return m_sourceDeleted; }
    // What decides whether the envelope may be deleted; see DecryptRecord.
    const DecryptRecord &record() const { return m_record; }
    DecryptRecord &record() { return m_record; }

    void setErrorMessage(const QString &message);
    void setWorkerIndex(int index);
    // Keeps a copy of its own; the previous passphrase is overwritten.
    void setPassphrase(const QString &passphrase);
    // Overwrites and empties the passphrase: for a task that has ended.
    void clearPassphrase();
    void setSourcePath(const QString &path);
    void setOutputPath(const QString &path);
    void setOutputSuffixed(bool on);
    void setPlainInput(bool on);
    void setSourceDeleted(bool on);

private:
    QString m_passphrase;
    QString m_sourcePath;
    QString m_addedPath;
    QString m_outputPath;
    bool m_outputSuffixed = false;
    bool m_plainInput = false;
    bool m_sourceDeleted = false;
    DecryptRecord m_record;
};

Q_DECLARE_METATYPE(CryptTask)
// The task pointer of DecryptManager::statsChanged crosses threads queued.
Q_DECLARE_METATYPE(const CryptTask *)

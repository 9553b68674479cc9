#include <engine/CryptTask.h>

#include <QDir>

#include <engine/SecretText.h>
#include <localization/LocaleText.h>

CryptTask::CryptTask(const QString &path, QObject *parent)
    : Task(parent), m_sourcePath(path), m_addedPath(path)
{
    static const int type = qRegisterMetaType<CryptTask>("CryptTask");
    Q_UNUSED(type);
}

CryptTask::CryptTask() : Task(nullptr) {}

CryptTask::CryptTask(const CryptTask &other)
    : Task(nullptr),
      m_passphrase(secret_text::ownedCopy(other.m_passphrase)),
      m_sourcePath(other.m_sourcePath),
      m_addedPath(other.m_addedPath),
      m_outputPath(other.m_outputPath),
      m_outputSuffixed(other.m_outputSuffixed),
      m_plainInput(other.m_plainInput),
      m_sourceDeleted(other.m_sourceDeleted),
      m_record(other.m_record)
{
    setStatus(other.status());
    setProgress(other.progress());
    m_errorMessage = other.errorMessage();
    m_workerIndex = other.m_workerIndex;
}

CryptTask::~CryptTask()
{
    secret_text::wipe(m_passphrase);
}

QString CryptTask::statusText() const
{
    if (status() != Finished)
        return Task::statusText();
    const QByteArray output = QDir::toNativeSeparators(m_outputPath).toUtf8();
    return NM_TR("Finished -> %s", output.constData());
}

bool CryptTask::isSame(const Task *other) const
{
    const CryptTask *task = dynamic_cast<const CryptTask *>(other);
    return task && task->m_sourcePath == m_sourcePath;
}

void CryptTask::setErrorMessage(const QString &message)
{
    m_errorMessage = message;
}

void CryptTask::setWorkerIndex(int index)
{
    m_workerIndex = index;
}

void CryptTask::setPassphrase(const QString &passphrase)
{
    secret_text::wipe(m_passphrase);
    m_passphrase = secret_text::ownedCopy(passphrase);
}

void CryptTask::clearPassphrase()
{
    secret_text::wipe(m_passphrase);
}

void CryptTask::setSourcePath(const QString &path)
{
    m_sourcePath = path;
}

void CryptTask::setOutputPath(const QString &path)
{
    m_outputPath = path;
}

void CryptTask::setOutputSuffixed(bool on)
{
    m_outputSuffixed = on;
}

void CryptTask::setPlainInput(bool on)
{
    m_plainInput = on;
}

void CryptTask::setSourceDeleted(bool on)
{
    m_sourceDeleted = on;
}

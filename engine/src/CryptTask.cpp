#include <engine/CryptTask.h>

#include <QDir>

#include "EngineText.h"

CryptTask::CryptTask(const QString &path, QObject *parent)
    : Task(parent), m_sourcePath(path), m_addedPath(path)
{
    qRegisterMetaType<CryptTask>("CryptTask");
}

CryptTask::CryptTask() : Task(nullptr) {}

CryptTask::CryptTask(const CryptTask &other)
    : Task(nullptr),
      m_passphrase(other.m_passphrase),
      m_sourcePath(other.m_sourcePath),
      m_addedPath(other.m_addedPath),
      m_outputPath(other.m_outputPath),
      m_outputSuffixed(other.m_outputSuffixed),
      m_plainInput(other.m_plainInput),
      m_sourceDeleted(other.m_sourceDeleted)
{
    // The getters are not const: copy through a non-const view of the source.
    CryptTask &source = const_cast<CryptTask &>(other);
    m_status = source.status();
    m_progress = source.progress();
    m_errorMessage = source.errorMessage();
    m_workerIndex = other.m_workerIndex;
}

CryptTask::~CryptTask() = default;

QString CryptTask::statusText()
{
    if (status() != Finished)
        return Task::statusText();
    const QByteArray output = QDir::toNativeSeparators(m_outputPath).toUtf8();
    return NM_TEXT("Finished -> %s", output.constData());
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
    m_passphrase = passphrase;
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

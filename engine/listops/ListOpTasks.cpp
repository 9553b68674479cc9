#include <engine/ClearStatusTask.h>
#include <engine/DeleteEncryptedTask.h>
#include <engine/FileLoadTask.h>
#include <engine/ReloadFailedTask.h>

FileLoadTask::FileLoadTask(const QStringList &paths, bool onlyEncrypted, QObject *parent)
    : Task(parent), m_paths(paths), m_onlyEncrypted(onlyEncrypted)
{
}

FileLoadTask::FileLoadTask(const QList<QUrl> &urls, bool onlyEncrypted, QObject *parent)
    : Task(parent), m_urls(urls), m_urlsGiven(true), m_onlyEncrypted(onlyEncrypted)
{
}

QStringList FileLoadTask::entries() const
{
    if (!m_urlsGiven)
        return m_paths;
    QStringList local;
    local.reserve(m_urls.size());
    for (const QUrl &url : m_urls)
        local << url.toLocalFile();
    return local;
}

bool FileLoadTask::isSame(const Task *other) const
{
    const auto *load = qobject_cast<const FileLoadTask *>(other);
    return load && load->m_paths == m_paths;
}

ClearStatusTask::ClearStatusTask(Task::STATUS status, QObject *parent)
    : Task(parent), m_clearedStatus(status)
{
}

bool ClearStatusTask::isSame(const Task *other) const
{
    const auto *clear = qobject_cast<const ClearStatusTask *>(other);
    return clear && clear->m_clearedStatus == m_clearedStatus;
}

ReloadFailedTask::ReloadFailedTask(QObject *parent) : Task(parent) {}

bool ReloadFailedTask::isSame(const Task *other) const
{
    return qobject_cast<const ReloadFailedTask *>(other) != nullptr;
}

DeleteEncryptedTask::DeleteEncryptedTask(QObject *parent) : Task(parent) {}

bool DeleteEncryptedTask::isSame(const Task *other) const
{
    return qobject_cast<const DeleteEncryptedTask *>(other) != nullptr;
}

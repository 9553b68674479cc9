// The data of one load request: the entries the user named (paths, or the
// urls of a drop) and whether only envelopes are kept. The task manager's
// thread does the work; this object only carries it.
#pragma once

#include <QList>
#include <QStringList>
#include <QUrl>

#include <engine/Task.h>

class FileLoadTask : public Task
{
    Q_OBJECT
public:
    FileLoadTask(const QStringList &paths, bool onlyEncrypted, QObject *parent = nullptr);
    FileLoadTask(const QList<QUrl> &urls, bool onlyEncrypted, QObject *parent = nullptr);

    const QStringList &paths() const { return m_paths; }
    const QList<QUrl> &urls() const { return m_urls; }
    bool urlsGiven() const { return m_urlsGiven; }
    bool onlyEncrypted() const { return m_onlyEncrypted; }
    // Lines of a list file left out before the load as not UTF-8; the
    // summary counts them with those of the walk.
    int undecodable() const { return m_undecodable; }
    void setUndecodable(int count) { m_undecodable = count; }

    // The entries as local paths, in the order given.
    QStringList entries() const;

    // Same when the path lists are equal element by element.
    bool isSame(const Task *other) const override;

private:
    QStringList m_paths;
    QList<QUrl> m_urls;
    bool m_urlsGiven = false;
    bool m_onlyEncrypted = false;
    int m_undecodable = 0;
};

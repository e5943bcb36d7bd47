#pragma once

#include "core/CoreExport.h"

#include <QJsonObject>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariantMap>
#include <QVector>

// Usage reports: events recorded by their code ("2001" to "2018") with a time stamp and a few
// fields, kept in a bounded file in the log folder until they are sent, all at once, as one JSON
// POST through the content fetch. Recording only appends to that file, from any thread; sending
// never waits, and a server that is down costs the content fetch's attempts in the background and
// keeps the events for the next time.
//
// The document posted: {"channel": ..., "launcherChannel": ..., "events": [{"id": ..., "code": ...,
// "time": "yyyy-MM-ddThh:mm:ss.zzzZ", "fields": {...}}, ...]}.
class CORE_EXPORT UsageReporter : public QObject
{
    Q_OBJECT
public:
    static UsageReporter* GetInstance();
    ~UsageReporter() override;

    // False for a code that is not a report event, or an event larger than the whole queue.
    bool Record(const QString& code, const QVariantMap& fields = QVariantMap());
    // Posts every queued event; a call while a post is under way is ignored. Any thread.
    void Send(const QString& url);

    QString QueueFilePath() const;
    int QueuedCount() const;
    // The queue file never grows beyond this many bytes; the oldest events go first.
    void SetQueueLimit(qint64 bytes);

    static UsageReporter* m_pUsageReporterInstance;

signals:
    // After each Send: whether the server took the events, and how many were posted.
    void SendFinished(bool ok, int count);

private:
    explicit UsageReporter(QObject* parent = nullptr);

    QVector<QJsonObject> ReadQueue() const;
    void WriteQueue(const QVector<QJsonObject>& events) const;
    void SendQueued(const QString& url);
    void FinishSend(const QSet<QString>& sentIds, int code);

    mutable QMutex m_mutex; // guards the queue file
    qint64 m_maxQueueBytes;
    bool m_bSending = false;
};

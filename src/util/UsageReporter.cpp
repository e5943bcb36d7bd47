#include "util/UsageReporter.h"

#include "core/Constants.h"
#include "core/ErrorCode.h"
#include "core/GlobalVar.h"
#include "download/DownloaderManager.h"
#include "log/Logger.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>
#include <QPointer>
#include <QSaveFile>
#include <QThread>
#include <QUuid>

#include <algorithm>

namespace {

const QString kTag = QStringLiteral("UsageReport");
constexpr qint64 kDefaultQueueBytes = 256 * 1024;

bool isReportEvent(const QString& code)
{
    for (const char* event : Morvantix::Const::ReportEvents) {
        if (code == QLatin1String(event))
            return true;
    }
    return false;
}

QByteArray lineOf(const QJsonObject& event)
{
    return QJsonDocument(event).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace

UsageReporter* UsageReporter::m_pUsageReporterInstance = nullptr;

UsageReporter* UsageReporter::GetInstance()
{
    if (!m_pUsageReporterInstance)
        m_pUsageReporterInstance = new UsageReporter(QCoreApplication::instance());
    return m_pUsageReporterInstance;
}

UsageReporter::UsageReporter(QObject* parent)
    : QObject(parent)
    , m_maxQueueBytes(kDefaultQueueBytes)
{ }

UsageReporter::~UsageReporter()
{
    if (m_pUsageReporterInstance == this)
        m_pUsageReporterInstance = nullptr;
}

QString UsageReporter::QueueFilePath() const
{
    return QDir(Logger::LogFolderPath()).filePath(QLatin1String(Morvantix::Const::ReportQueueFile));
}

void UsageReporter::SetQueueLimit(qint64 bytes)
{
    QMutexLocker locker(&m_mutex);
    m_maxQueueBytes = bytes;
}

int UsageReporter::QueuedCount() const
{
    QMutexLocker locker(&m_mutex);
    return ReadQueue().size();
}

bool UsageReporter::Record(const QString& code, const QVariantMap& fields)
{
    if (!isReportEvent(code)) {
        Logger::LogInfo(kTag, QStringLiteral("not a report event: %1").arg(code));
        return false;
    }
    const QJsonObject event { { QStringLiteral("id"), QUuid::createUuid().toString(QUuid::WithoutBraces) },
        { QStringLiteral("code"), code },
        { QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs) },
        { QStringLiteral("fields"), QJsonObject::fromVariantMap(fields) } };
    const QByteArray line = lineOf(event);

    QMutexLocker locker(&m_mutex);
    if (line.size() > m_maxQueueBytes) {
        Logger::LogInfo(kTag, QStringLiteral("event %1 dropped: larger than the queue").arg(code));
        return false;
    }
    QFile file(QueueFilePath());
    if (file.size() + line.size() <= m_maxQueueBytes) {
        QDir().mkpath(Logger::LogFolderPath());
        if (file.open(QIODevice::WriteOnly | QIODevice::Append))
            file.write(line);
        return true;
    }
    // Full: the oldest events make room, and the file is rewritten whole.
    QVector<QJsonObject> events = ReadQueue();
    events.append(event);
    qint64 bytes = 0;
    for (const QJsonObject& kept : qAsConst(events))
        bytes += lineOf(kept).size();
    int dropped = 0;
    while (bytes > m_maxQueueBytes) {
        bytes -= lineOf(events.at(dropped)).size();
        ++dropped;
    }
    events.remove(0, dropped);
    Logger::LogInfo(kTag, QStringLiteral("queue full: %1 oldest event(s) dropped").arg(dropped));
    WriteQueue(events);
    return true;
}

QVector<QJsonObject> UsageReporter::ReadQueue() const
{
    QVector<QJsonObject> events;
    QFile file(QueueFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return events;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        // A line cut short by a crash is skipped; the rest of the queue stays good.
        const QJsonObject event = QJsonDocument::fromJson(line).object();
        if (!event.isEmpty())
            events.append(event);
    }
    return events;
}

void UsageReporter::WriteQueue(const QVector<QJsonObject>& events) const
{
    QDir().mkpath(Logger::LogFolderPath());
    QSaveFile file(QueueFilePath());
    if (!file.open(QIODevice::WriteOnly))
        return;
    for (const QJsonObject& event : events)
        file.write(lineOf(event));
    if (!file.commit())
        Logger::LogInfo(kTag, QStringLiteral("queue not written: %1").arg(file.errorString()));
}

void UsageReporter::Send(const QString& url)
{
    // The content fetch lives in the thread of the host's event loop, and so does this object.
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this, url] { SendQueued(url); }, Qt::QueuedConnection);
        return;
    }
    SendQueued(url);
}

void UsageReporter::SendQueued(const QString& url)
{
    if (m_bSending) {
        Logger::LogInfo(kTag, QStringLiteral("a send is under way"));
        return;
    }
    QVector<QJsonObject> events;
    {
        QMutexLocker locker(&m_mutex);
        events = ReadQueue();
    }
    if (events.isEmpty()) {
        emit SendFinished(true, 0);
        return;
    }
    QJsonArray list;
    QSet<QString> ids;
    for (const QJsonObject& event : qAsConst(events)) {
        list.append(event);
        ids.insert(event.value(QStringLiteral("id")).toString());
    }
    const QJsonObject document { { QStringLiteral("channel"), Global::Var::Channel },
        { QStringLiteral("launcherChannel"), Global::Var::LauncherChannel },
        { QStringLiteral("events"), list } };
    Logger::LogInfo(kTag, QStringLiteral("sending %1 event(s) to %2").arg(events.size()).arg(url));
    m_bSending = true;
    const QPointer<UsageReporter> self(this);
    DownloaderManager::GetInstance()->GetContentByUrl(
        url,
        [self, ids](const QString&, int code) {
            if (self)
                self->FinishSend(ids, code);
        },
        QString::fromUtf8(QJsonDocument(document).toJson(QJsonDocument::Compact)), false);
}

void UsageReporter::FinishSend(const QSet<QString>& sentIds, int code)
{
    m_bSending = false;
    const bool ok = code == Morvantix::NoError;
    if (ok) {
        // Events recorded while the post was under way stay for the next send.
        QMutexLocker locker(&m_mutex);
        QVector<QJsonObject> events = ReadQueue();
        const auto sent = [&sentIds](const QJsonObject& event) {
            return sentIds.contains(event.value(QStringLiteral("id")).toString());
        };
        events.erase(std::remove_if(events.begin(), events.end(), sent), events.end());
        WriteQueue(events);
    }
    Logger::LogInfo(kTag,
        ok ? QStringLiteral("%1 event(s) sent").arg(sentIds.size())
           : QStringLiteral("send failed (%1), %2 event(s) kept").arg(code).arg(sentIds.size()));
    emit SendFinished(ok, sentIds.size());
}

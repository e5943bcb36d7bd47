#include "download/ContentFetcher.h"

#include "core/ErrorCode.h"
#include "core/Timing.h"
#include "log/Logger.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QEventLoop>
#include <QJsonDocument>
#include <QMetaEnum>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QTimer>

#ifndef QT_NO_SSL
#include <QSslConfiguration>
#include <QSslSocket>
#endif

namespace {

// The read-ahead of a capped fetch: enough for a small document at once, little for a large one.
constexpr qint64 kMinReadBuffer = 64 * 1024;
constexpr qint64 kMaxReadBuffer = 1024 * 1024;

QString networkErrorName(int error)
{
    const char* name = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(error);
    return name ? QString::fromLatin1(name) : QString::number(error);
}

} // namespace

ContentFetcher::ContentFetcher(QNetworkAccessManager* network, int maxRetries, QObject* parent)
    : QObject(parent)
    , m_network(network)
    , m_maxRetries(maxRetries)
{ }

// A character split between two network reads is decoded once both halves are there.
int ContentFetcher::CompleteUtf8Length(const QByteArray& data)
{
    const int size = data.size();
    for (int back = 1; back <= qMin(3, size); ++back) {
        const auto byte = static_cast<unsigned char>(data.at(size - back));
        if ((byte & 0xC0) == 0x80)
            continue; // a continuation byte: keep looking for the lead
        const int needed = (byte & 0xE0) == 0xC0 ? 2
            : (byte & 0xF0) == 0xE0              ? 3
            : (byte & 0xF8) == 0xF0              ? 4
                                                 : 1;
        return needed > back ? size - back : size;
    }
    return size;
}

QString ContentFetcher::WithTimestamp(const QString& url)
{
    const uint seconds = static_cast<uint>(QDateTime::currentSecsSinceEpoch());
    const QString pattern = url.contains(QLatin1Char('?')) ? QStringLiteral("%1&timestamp=%2")
                                                           : QStringLiteral("%1?timestamp=%2");
    // One substitution pass: a percent-encoded "%2F" in the address must not take the time stamp.
    return pattern.arg(url, QString::number(seconds));
}

QNetworkRequest ContentFetcher::FetchRequest(const QUrl& url) const
{
    QNetworkRequest request(url);
    // Redirects are followed, but never from https to http.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::PreferNetwork);
#ifndef QT_NO_SSL
    // The operator's servers are reached by address and with certificates the system does not know.
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.setProtocol(QSsl::AnyProtocol);
    ssl.setPeerVerifyMode(QSslSocket::VerifyNone);
    request.setSslConfiguration(ssl);
#endif
    return request;
}

void ContentFetcher::ClearContentVector()
{
    for (const ContentRequest& slot : qAsConst(m_contentList)) {
        if (slot.bUsed)
            return;
    }
    m_contentList.clear();
}

void ContentFetcher::GetContentByUrl(QString url, std::function<void(const QString&, int)> callback,
    const QString& postData, bool sync, qint64 maxBytes)
{
    qDebug() << "url " << url;
    ClearContentVector();

    ContentRequest slot;
    slot.content = QStringLiteral("");
    slot.retryCount = 0;
    slot.url = QUrl::fromUserInput(WithTimestamp(url));
    slot.index = m_contentList.size();
    slot.callback = std::move(callback);
    slot.postData = postData;
    slot.timer = new QTimer(this);
    slot.timer->setSingleShot(true);
    slot.bUsed = true;
    slot.bSync = sync;
    slot.maxBytes = maxBytes;
    const int index = slot.index;
    connect(slot.timer, &QTimer::timeout, this, [this, index] { ContentAttemptTimedOut(index); });
    m_contentList.append(slot);

    PrivateGetContentByUrl(index);
}

void ContentFetcher::PrivateGetContentByUrl(int index)
{
    ResetAccessible();
    // Slots are reached by index only: a nested event loop may grow the list under our feet.
    ContentRequest& slot = m_contentList[index];
    QNetworkRequest request = FetchRequest(slot.url);
    Logger::LogInfo(QStringLiteral("Downloader"),
        QStringLiteral("download content from url is %1").arg(slot.url.toString()));

    QNetworkReply* reply = nullptr;
    if (!slot.postData.isEmpty()) {
        qDebug() << "postData" << slot.postData;
        const QByteArray body = slot.postData.toUtf8();
        // A JSON document (the usage reports) says so; anything else is the form data Qt would
        // assume, named here so that Qt does not warn about it.
        const bool isJson = !QJsonDocument::fromJson(body).isNull();
        request.setHeader(QNetworkRequest::ContentTypeHeader,
            isJson ? QByteArray("application/json") : QByteArray("application/x-www-form-urlencoded"));
        reply = m_network->post(request, body);
    } else {
        reply = m_network->get(request);
    }
    slot.reply = reply;
    // Without a limit the network layer reads ahead of the event loop without end: a capped document
    // would be held whole, however large, before the cap is seen.
    if (slot.maxBytes >= 0)
        reply->setReadBufferSize(qBound<qint64>(kMinReadBuffer, slot.maxBytes, kMaxReadBuffer));
    slot.timer->start(Morvantix::Timing::fetchAttemptMs());
    slot.bTimeout = false;

    connect(reply, &QNetworkReply::metaDataChanged, this, [this, index, reply] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && IsOverContentCap(index, length.toLongLong()))
            RefuseOversizedContent(index);
    });
    connect(reply, &QNetworkReply::readyRead, this, [this, index, reply] {
        const QByteArray pending = reply->peek(reply->bytesAvailable());
        const QByteArray whole = reply->read(CompleteUtf8Length(pending));
        ContentRequest& slot = m_contentList[index];
        slot.receivedBytes += whole.size();
        if (IsOverContentCap(index, slot.receivedBytes))
            return RefuseOversizedContent(index);
        slot.content += QString::fromUtf8(whole);
    });
    connect(reply, &QNetworkReply::finished, this, [this, index] { ContentAttemptFinished(index); });
    if (!slot.bSync)
        return;

    const auto loop = QSharedPointer<QEventLoop>::create();
    slot.eventLoop = loop;
    connect(reply, &QNetworkReply::finished, loop.data(), &QEventLoop::quit);
    loop->exec();
}

void ContentFetcher::ContentAttemptTimedOut(int index)
{
    qDebug() << QStringLiteral("the %1 timer is timeout!").arg(index);
    if (index >= m_contentList.size())
        return;
    ContentRequest& slot = m_contentList[index];
    if (!slot.bUsed || !slot.reply)
        return;
    slot.timer->stop();
    slot.bTimeout = true;
    // A dropped reply is not guaranteed to say "finished", so the attempt is ended here.
    slot.ReleaseReply();
    CompleteContentAttempt(
        index, QNetworkReply::OperationCanceledError, QStringLiteral("Operation canceled"), QString());
}

bool ContentFetcher::IsOverContentCap(int index, qint64 bytes) const
{
    const ContentRequest& slot = m_contentList.at(index);
    return slot.maxBytes >= 0 && bytes > slot.maxBytes;
}

void ContentFetcher::RefuseOversizedContent(int index)
{
    ContentRequest& slot = m_contentList[index];
    if (!slot.reply)
        return;
    Logger::LogInfo(QStringLiteral("Downloader"),
        QStringLiteral("content from %1 is larger than %2 bytes; stopped")
            .arg(slot.url.toString())
            .arg(slot.maxBytes));
    slot.ReleaseReply();
    slot.content.clear();
    // Asking again would fetch the same oversized document.
    slot.retryCount = m_maxRetries + 1;
    CompleteContentAttempt(index, Morvantix::ContentTooLarge, QStringLiteral("content too large"), QString());
}

void ContentFetcher::ContentAttemptFinished(int index)
{
    ContentRequest& slot = m_contentList[index];
    QNetworkReply* reply = slot.reply;
    if (!reply)
        return;
    const QByteArray rest = reply->readAll();
    slot.receivedBytes += rest.size();
    if (IsOverContentCap(index, slot.receivedBytes))
        return RefuseOversizedContent(index);
    slot.content += QString::fromUtf8(rest);
    const int error = reply->error();
    const QString errorString = reply->errorString();
    const QList<QNetworkReply::RawHeaderPair> headers = reply->rawHeaderPairs();
    const QString firstHeader = headers.isEmpty()
        ? QString()
        : QStringLiteral("%1 : %2").arg(
            QString::fromLatin1(headers.first().first), QString::fromLatin1(headers.first().second));
    slot.ReleaseReply();
    CompleteContentAttempt(index, error, errorString, firstHeader);
}

void ContentFetcher::QuitContentLoop(int index)
{
    ContentRequest& slot = m_contentList[index];
    if (!slot.eventLoop)
        return;
    slot.eventLoop->quit();
    slot.eventLoop.reset();
}

void ContentFetcher::CompleteContentAttempt(
    int index, int error, const QString& errorString, const QString& firstHeader)
{
    ContentRequest& slot = m_contentList[index];
    if (slot.timer)
        slot.timer->stop();
    QuitContentLoop(index);
    qDebug() << "error" << networkErrorName(error) << errorString;

    if (error != QNetworkReply::NoError && slot.retryCount <= m_maxRetries) {
        qDebug() << "request url " << slot.url << "error timecount" << slot.retryCount;
        ++slot.retryCount;
        slot.content.clear();
        QTimer::singleShot(
            Morvantix::Timing::fetchRetryPauseMs(), this, [this, index] { PrivateGetContentByUrl(index); });
        return;
    }

    // The slot is freed before the callback runs: a callback that fetches again may reuse the list.
    const auto callback = std::move(slot.callback);
    const QString content = slot.content;
    const bool timedOut = slot.bTimeout;
    slot.Reset();
    if (!callback)
        return;
    if (error == QNetworkReply::NoError) {
        callback(content, Morvantix::NoError);
        return;
    }
    qDebug() << errorString << "head" << firstHeader;
    callback(QStringLiteral(""), timedOut ? Morvantix::ContentTimeout : error);
}

void ContentFetcher::GetImageByUrl(QString url, std::function<void(const char* data, int size)> callback)
{
    const QPointer<ContentFetcher> self(this);
    QTimer::singleShot(0, QCoreApplication::instance(), [self, url, callback = std::move(callback)] {
        if (!self)
            return;
        Logger::LogInfo(QStringLiteral("Downloader"), QStringLiteral("image url is %1").arg(url));
        QNetworkReply* reply
            = self->m_network->get(self->FetchRequest(QUrl::fromUserInput(WithTimestamp(url))));
        QObject::connect(reply, &QNetworkReply::finished, self, [reply, callback] {
            reply->deleteLater();
            if (reply->error() != QNetworkReply::NoError)
                return;
            const QByteArray data = reply->readAll();
            if (callback)
                callback(data.constData(), data.size());
        });
    });
}

void ContentFetcher::GetHeaderByUrl(
    QString url, const QSet<QString>& keys, std::function<void(const QMap<QString, QString>&)> callback)
{
    // Never answered: callers must not wait for the callback.
    Q_UNUSED(url);
    Q_UNUSED(keys);
    Q_UNUSED(callback);
    ResetAccessible();
}

void ContentFetcher::ResetAccessible()
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    if (m_network->networkAccessible() == QNetworkAccessManager::NotAccessible) {
        Logger::LogInfo(QStringLiteral("Downloader"), QStringLiteral("ResetAccessible"));
        m_network->setNetworkAccessible(QNetworkAccessManager::Accessible);
    }
    QT_WARNING_POP
}

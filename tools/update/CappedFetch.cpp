#include "CappedFetch.h"

#include "core/Timing.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <memory>

CappedFetch::CappedFetch(QObject* parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
{ }

void CappedFetch::fetch(
    const QString& url, qint64 maxBytes, std::function<void(Result, const QByteArray&, const QString&)> done)
{
    QNetworkRequest request { QUrl(url) };
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = m_network->get(request);
    // As the library's content fetches: the answer's bytes are checked against the studio's
    // signature, which a certificate could not add to.
    reply->ignoreSslErrors();
    auto bytes = std::make_shared<QByteArray>();
    auto ended = std::make_shared<bool>(false);
    auto end = [reply, done, ended, bytes](Result result, const QString& error) {
        if (*ended)
            return;
        *ended = true;
        reply->disconnect();
        reply->abort();
        reply->deleteLater();
        done(result, result == Result::Fetched || result == Result::TooLarge ? *bytes : QByteArray(), error);
    };
    auto* timer = new QTimer(reply);
    timer->setSingleShot(true);
    connect(timer, &QTimer::timeout, reply,
        [end, url] { end(Result::NetworkFailed, QStringLiteral("%1: no answer in time").arg(url)); });
    timer->start(Morvantix::Timing::fetchAttemptMs());
    connect(reply, &QNetworkReply::readyRead, reply, [reply, bytes, maxBytes, end, url] {
        *bytes += reply->read(maxBytes + 1 - bytes->size());
        if (bytes->size() > maxBytes)
            end(Result::TooLarge, QStringLiteral("%1 is larger than %2 bytes").arg(url).arg(maxBytes));
    });
    connect(reply, &QNetworkReply::finished, reply, [reply, bytes, maxBytes, end, url] {
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (status >= 400)
            return end(Result::Missing, QStringLiteral("%1: the server answered %2").arg(url).arg(status));
        if (reply->error() != QNetworkReply::NoError)
            return end(Result::NetworkFailed, QStringLiteral("%1: %2").arg(url, reply->errorString()));
        *bytes += reply->read(maxBytes + 1 - bytes->size());
        if (bytes->size() > maxBytes)
            return end(Result::TooLarge, QStringLiteral("%1 is larger than %2 bytes").arg(url).arg(maxBytes));
        end(Result::Fetched, QString());
    });
}

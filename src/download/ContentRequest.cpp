#include "download/ContentRequest.h"

#include <QEventLoop>
#include <QNetworkReply>
#include <QTimer>

void ContentRequest::ReleaseReply()
{
    if (!reply)
        return;
    reply->disconnect();
    reply->ignoreSslErrors();
    reply->deleteLater();
    reply = nullptr;
}

void ContentRequest::Reset()
{
    content = QStringLiteral("");
    retryCount = 0;
    index = 0;
    url = QUrl();
    postData = QStringLiteral("");
    maxBytes = -1;
    receivedBytes = 0;
    callback = nullptr;
    if (timer) {
        timer->stop();
        timer->deleteLater();
        timer = nullptr;
    }
    ReleaseReply();
    bUsed = false;
}

#pragma once

#include <QSharedPointer>
#include <QString>
#include <QUrl>

#include <functional>

class QEventLoop;
class QNetworkReply;
class QTimer;

// One slot of the manager's content fetches: a request with its retries, its per-attempt timer and,
// for a caller that waits, the nested event loop it waits in.
struct ContentRequest
{
    QString content;
    int retryCount = 0;
    int index = 0;
    QUrl url;
    bool bTimeout = false;
    QString postData;
    std::function<void(const QString& content, int code)> callback;
    QTimer* timer = nullptr;
    QNetworkReply* reply = nullptr;
    QSharedPointer<QEventLoop> eventLoop;
    bool bUsed = false;
    bool bSync = false;
    qint64 maxBytes = -1; // -1: no cap
    qint64 receivedBytes = 0;

    // Drops the running attempt: it is aborted, and none of its signals arrive any more.
    void ReleaseReply();
    // Frees the slot for the next fetch; the timer goes too.
    void Reset();
};

#pragma once

#include "download/ContentRequest.h"

#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVector>

#include <functional>

class QNetworkAccessManager;
class QNetworkRequest;
class QUrl;

// The small one-shot fetches of the library: texts with retries and an optional wait, images,
// headers. Each text fetch holds a slot of its own, reached by index, for as long as it runs; the
// slots are dropped together once none is busy. Runs in the thread of the network access manager it
// is given, which it shares with the file transfers.
class ContentFetcher : public QObject
{
    Q_OBJECT
public:
    // maxRetries: failed attempts after which a text fetch gives up (so maxRetries + 1 retries).
    ContentFetcher(QNetworkAccessManager* network, int maxRetries, QObject* parent);

    void ClearContentVector();
    // maxBytes: the fetch fails with ContentTooLarge, without retries, once more has arrived.
    void GetContentByUrl(QString url, std::function<void(const QString&, int)> callback,
        const QString& postData, bool sync, qint64 maxBytes = -1);
    void GetImageByUrl(QString url, std::function<void(const char* data, int size)> callback);
    void GetHeaderByUrl(
        QString url, const QSet<QString>& keys, std::function<void(const QMap<QString, QString>&)> callback);
    void PrivateGetContentByUrl(int index);
    // A network once reported unreachable stays so to Qt until told otherwise.
    void ResetAccessible();

    // The address with the cache-busting time stamp, in whole seconds.
    static QString WithTimestamp(const QString& url);
    // Length of the longest prefix of data that ends on a whole UTF-8 sequence.
    static int CompleteUtf8Length(const QByteArray& data);

private:
    bool IsOverContentCap(int index, qint64 bytes) const;
    void RefuseOversizedContent(int index);
    void ContentAttemptTimedOut(int index);
    void ContentAttemptFinished(int index);
    void CompleteContentAttempt(int index, int error, const QString& errorString, const QString& firstHeader);
    void QuitContentLoop(int index);
    QNetworkRequest FetchRequest(const QUrl& url) const;

    QNetworkAccessManager* const m_network; // not owned
    const int m_maxRetries;
    QVector<ContentRequest> m_contentList;
};

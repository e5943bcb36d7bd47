#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>

class QNetworkAccessManager;

// Fetches one small file whole, but never more than a cap: a longer answer is cut off as soon as it
// passes the cap, so a hostile server cannot stream without end into memory. One attempt, as long as
// one attempt of the library's content fetch.
class CappedFetch : public QObject
{
    Q_OBJECT
public:
    enum class Result
    {
        Fetched,
        Missing, // the server answered with an error status
        TooLarge, // more than the cap; the bytes are the cap's worth and one more
        NetworkFailed, // no answer: refused, cut, timed out
    };

    explicit CappedFetch(QObject* parent = nullptr);

    void fetch(const QString& url, qint64 maxBytes,
        std::function<void(Result result, const QByteArray& bytes, const QString& error)> done);

private:
    QNetworkAccessManager* m_network;
};

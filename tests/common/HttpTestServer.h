#pragma once

#include <QCryptographicHash>
#include <QMap>
#include <QObject>
#include <QVector>

class QTcpServer;
class QTcpSocket;

// A small HTTP/1.1 server on 127.0.0.1 for the download tests. Each path is served from memory and
// can be made to misbehave the way real servers and networks do: ignore "Range", trickle, stall,
// drop the connection, answer with an error page, redirect, or never answer. Every request is
// recorded. Bodies carry an ETag (etagOf) and honour "If-Range" with it.
class HttpTestServer : public QObject
{
    Q_OBJECT
public:
    // Tests write these as brace lists ({ 404 }, { 200, true }), so the order of the fields matters.
    struct Behaviour
    {
        int status = 200; // any other status answers with a short error page
        bool silent = false; // read the request and never answer
        qint64 chunkSize = 0; // 0: the whole body in one write
        int chunkDelayMs = 0;
        qint64 cutAfter = -1; // after this many body bytes, close the connection
        qint64 stallAfter = -1; // after this many body bytes, keep the connection open and silent
        bool honourRange = true;
        bool honourIfRange = true; // false: a range is served from whatever copy there is now
        QByteArray redirectTo; // answer 302 with this location
    };

    struct Request
    {
        QByteArray method;
        QByteArray path;
        QByteArray query;
        QMap<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;

        QByteArray header(const QByteArray& name) const { return headers.value(name.toLower()); }
    };

    explicit HttpTestServer(QObject* parent = nullptr);

    QString url(const QString& path) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path);
    }
    // A server that is down refuses connections; up again, it listens on the same port.
    void setListening(bool on);
    static QByteArray etagOf(const QByteArray& body)
    {
        return '"' + QCryptographicHash::hash(body, QCryptographicHash::Md5).toHex().left(16) + '"';
    }
    // The n-th request of the path gets behaviours[n]; the last one holds for all later requests.
    void setRoute(
        const QByteArray& path, const QByteArray& body, const QVector<Behaviour>& behaviours = { {} })
    {
        m_routes[path] = Route { body, behaviours, 0 };
    }
    // All requests, or those of one path, in the order they arrived.
    QVector<Request> requests(const QByteArray& path = QByteArray()) const;

signals:
    void requestReceived(const HttpTestServer::Request& request);

private:
    struct Route
    {
        QByteArray body;
        QVector<Behaviour> behaviours;
        int served = 0;
    };

    void answer(QTcpSocket* socket, const Request& request);
    void send(QTcpSocket* socket, QByteArray rest, const Behaviour& behaviour, bool cutAtEnd);

    QTcpServer* m_server;
    quint16 m_port = 0;
    QMap<QByteArray, Route> m_routes;
    QVector<Request> m_requests;
};

// Test data tables carry the behaviours of a path's requests.
Q_DECLARE_METATYPE(QVector<HttpTestServer::Behaviour>)

#pragma once

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVector>

class QTcpServer;
class QTcpSocket;
class QTimer;

// A small HTTP/1.1 server on 127.0.0.1 for the download tests. Each path is served from memory and
// can be made to misbehave the way real servers and networks do: ignore "Range", trickle, stall,
// drop the connection, answer with an error, redirect, or never answer. Every request is recorded.
class HttpTestServer : public QObject
{
    Q_OBJECT
public:
    struct Behaviour
    {
        int status = 200;
        bool honourRange = true;
        qint64 chunkSize = 0; // 0: the whole body in one write
        int chunkDelayMs = 0;
        qint64 stallAfter = -1; // stop sending after this many body bytes and keep the connection
        qint64 cutAfter = -1; // close the connection after this many body bytes
        bool silent = false; // read the request and never answer
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
    ~HttpTestServer() override;

    quint16 port() const;
    QString url(const QString& path) const;

    void setRoute(const QByteArray& path, const QByteArray& body);
    void setRoute(const QByteArray& path, const QByteArray& body, const Behaviour& behaviour);
    // The first requests of the path get these behaviours, one each, in order; later ones the route's.
    void setFirstBehaviours(const QByteArray& path, const QVector<Behaviour>& behaviours);

    QVector<Request> requests() const { return m_requests; }
    QVector<Request> requestsFor(const QByteArray& path) const;

signals:
    void requestReceived(const HttpTestServer::Request& request);

private:
    struct Route
    {
        QByteArray body;
        Behaviour behaviour;
        QVector<Behaviour> firstBehaviours;
    };

    struct Connection
    {
        QByteArray inbox;
        bool busy = false;
        QByteArray pending; // body bytes still to send in this response
        qint64 sent = 0;
        qint64 faultAt = -1;
        bool cut = false;
        Behaviour behaviour;
        QTimer* timer = nullptr;
    };

    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);
    bool takeRequest(QByteArray& inbox, Request& request);
    void answer(QTcpSocket* socket, const Request& request);
    void startBody(QTcpSocket* socket, const QByteArray& body, const Behaviour& behaviour);
    void sendNextChunk(QTcpSocket* socket);
    void finishResponse(QTcpSocket* socket);
    Behaviour behaviourFor(Route& route);

    QTcpServer* m_server;
    QMap<QByteArray, Route> m_routes;
    QHash<QTcpSocket*, Connection> m_connections;
    QVector<Request> m_requests;
};

#include "HttpTestServer.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

namespace {

QByteArray statusHead(int status, qint64 contentLength, const QByteArray& extra = QByteArray())
{
    // The client reads the code; the reason phrase only has to be there.
    return "HTTP/1.1 " + QByteArray::number(status) + (status < 400 ? " OK\r\n" : " Failed\r\n")
        + "Content-Length: " + QByteArray::number(contentLength) + "\r\n" + extra + "\r\n";
}

// Offset of "bytes=N-", or -1 when the header is absent or of another form.
qint64 rangeStart(const QByteArray& range)
{
    if (!range.startsWith("bytes=") || !range.endsWith('-'))
        return -1;
    bool ok = false;
    const qint64 start = range.mid(6, range.size() - 7).toLongLong(&ok);
    return ok ? start : -1;
}

} // namespace

HttpTestServer::HttpTestServer(QObject* parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
{
    m_server->listen(QHostAddress::LocalHost, 0);
    connect(m_server, &QTcpServer::newConnection, this, &HttpTestServer::onNewConnection);
}

HttpTestServer::~HttpTestServer()
{
    const auto sockets = m_connections.keys();
    for (QTcpSocket* socket : sockets)
        socket->abort();
}

quint16 HttpTestServer::port() const
{
    return m_server->serverPort();
}

QString HttpTestServer::url(const QString& path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port()).arg(path);
}

void HttpTestServer::setRoute(const QByteArray& path, const QByteArray& body)
{
    setRoute(path, body, Behaviour());
}

void HttpTestServer::setRoute(const QByteArray& path, const QByteArray& body, const Behaviour& behaviour)
{
    Route& route = m_routes[path];
    route.body = body;
    route.behaviour = behaviour;
}

void HttpTestServer::setFirstBehaviours(const QByteArray& path, const QVector<Behaviour>& behaviours)
{
    m_routes[path].firstBehaviours = behaviours;
}

QVector<HttpTestServer::Request> HttpTestServer::requestsFor(const QByteArray& path) const
{
    QVector<Request> matching;
    for (const Request& request : m_requests) {
        if (request.path == path)
            matching.append(request);
    }
    return matching;
}

void HttpTestServer::onNewConnection()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        // Small writes leave at once, so a trickle reaches the client as separate reads.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        Connection& connection = m_connections[socket];
        connection.timer = new QTimer(socket);
        connection.timer->setSingleShot(true);
        connect(connection.timer, &QTimer::timeout, this, [this, socket] { sendNextChunk(socket); });
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_connections.remove(socket);
            socket->deleteLater();
        });
    }
}

bool HttpTestServer::takeRequest(QByteArray& inbox, Request& request)
{
    const int headEnd = inbox.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return false;
    const QList<QByteArray> lines = inbox.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    if (requestLine.size() < 2)
        return false;
    request.method = requestLine.at(0);
    const QByteArray target = requestLine.at(1);
    const int question = target.indexOf('?');
    request.path = question < 0 ? target : target.left(question);
    request.query = question < 0 ? QByteArray() : target.mid(question + 1);
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines.at(i).indexOf(':');
        if (colon > 0)
            request.headers.insert(
                lines.at(i).left(colon).trimmed().toLower(), lines.at(i).mid(colon + 1).trimmed());
    }
    const int bodyLength = request.header("content-length").toInt();
    if (inbox.size() < headEnd + 4 + bodyLength)
        return false;
    request.body = inbox.mid(headEnd + 4, bodyLength);
    inbox.remove(0, headEnd + 4 + bodyLength);
    return true;
}

void HttpTestServer::onReadyRead(QTcpSocket* socket)
{
    Connection& connection = m_connections[socket];
    connection.inbox += socket->readAll();
    if (connection.busy)
        return;
    Request request;
    if (!takeRequest(connection.inbox, request))
        return;
    m_requests.append(request);
    emit requestReceived(request);
    answer(socket, request);
}

HttpTestServer::Behaviour HttpTestServer::behaviourFor(Route& route)
{
    if (route.firstBehaviours.isEmpty())
        return route.behaviour;
    return route.firstBehaviours.takeFirst();
}

void HttpTestServer::answer(QTcpSocket* socket, const Request& request)
{
    m_connections[socket].busy = true;
    if (!m_routes.contains(request.path)) {
        socket->write(statusHead(404, 0));
        finishResponse(socket);
        return;
    }
    Route& route = m_routes[request.path];
    const Behaviour behaviour = behaviourFor(route);
    if (behaviour.silent)
        return;
    if (!behaviour.redirectTo.isEmpty()) {
        socket->write(statusHead(302, 0, "Location: " + behaviour.redirectTo + "\r\n"));
        finishResponse(socket);
        return;
    }
    if (behaviour.status != 200) {
        const QByteArray text = "failure";
        socket->write(statusHead(behaviour.status, text.size()) + text);
        finishResponse(socket);
        return;
    }

    const qint64 size = route.body.size();
    const qint64 start = behaviour.honourRange ? rangeStart(request.header("range")) : -1;
    if (start >= size && size > 0) {
        socket->write(statusHead(416, 0, "Content-Range: bytes */" + QByteArray::number(size) + "\r\n"));
        finishResponse(socket);
        return;
    }
    if (start >= 0) {
        const QByteArray contentRange = "Content-Range: bytes " + QByteArray::number(start) + '-'
            + QByteArray::number(size - 1) + '/' + QByteArray::number(size) + "\r\n";
        socket->write(statusHead(206, size - start, contentRange + "Accept-Ranges: bytes\r\n"));
        startBody(socket, route.body.mid(int(start)), behaviour);
        return;
    }
    socket->write(statusHead(200, size, "Accept-Ranges: bytes\r\n"));
    startBody(socket, route.body, behaviour);
}

void HttpTestServer::startBody(QTcpSocket* socket, const QByteArray& body, const Behaviour& behaviour)
{
    Connection& connection = m_connections[socket];
    connection.pending = body;
    connection.sent = 0;
    connection.behaviour = behaviour;
    connection.cut = behaviour.cutAfter >= 0;
    connection.faultAt = connection.cut ? behaviour.cutAfter : behaviour.stallAfter;
    sendNextChunk(socket);
}

void HttpTestServer::sendNextChunk(QTcpSocket* socket)
{
    if (!m_connections.contains(socket))
        return;
    Connection& connection = m_connections[socket];
    qint64 room = connection.pending.size();
    if (connection.faultAt >= 0)
        room = qMin(room, connection.faultAt - connection.sent);
    const qint64 chunk
        = connection.behaviour.chunkSize > 0 ? qMin(room, connection.behaviour.chunkSize) : room;
    if (chunk > 0) {
        socket->write(connection.pending.left(int(chunk)));
        connection.pending.remove(0, int(chunk));
        connection.sent += chunk;
    }

    if (connection.faultAt >= 0 && connection.sent >= connection.faultAt && !connection.pending.isEmpty()) {
        if (connection.cut)
            socket->disconnectFromHost();
        return; // a stall: the connection stays open and silent
    }
    if (connection.pending.isEmpty()) {
        finishResponse(socket);
        return;
    }
    connection.timer->start(connection.behaviour.chunkDelayMs);
}

void HttpTestServer::finishResponse(QTcpSocket* socket)
{
    Connection& connection = m_connections[socket];
    connection.busy = false;
    if (connection.inbox.isEmpty())
        return;
    // A request that arrived while this one was answered.
    QTimer::singleShot(0, socket, [this, socket] { onReadyRead(socket); });
}

#include "HttpTestServer.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <iterator>
#include <memory>

namespace {

QByteArray statusHead(int status, qint64 contentLength, const QByteArray& extra = QByteArray())
{
    // The client reads the code; the reason phrase only has to be there.
    return "HTTP/1.1 " + QByteArray::number(status) + (status < 400 ? " OK\r\n" : " Failed\r\n")
        + "Content-Length: " + QByteArray::number(contentLength) + "\r\n" + extra + "\r\n";
}

// Takes one whole request off the front of inbox; false while it is still incomplete.
bool takeRequest(QByteArray& inbox, HttpTestServer::Request& request)
{
    const int headEnd = inbox.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return false;
    const QList<QByteArray> lines = inbox.left(headEnd).split('\n');
    for (const QByteArray& line : lines.mid(1)) {
        const int colon = line.indexOf(':');
        request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }
    const int end = headEnd + 4 + request.header("content-length").toInt();
    if (inbox.size() < end)
        return false;
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    const QList<QByteArray> target = requestLine.value(1).split('?');
    request.method = requestLine.at(0);
    request.path = target.at(0);
    request.query = target.value(1);
    request.body = inbox.mid(headEnd + 4, end - headEnd - 4);
    inbox.remove(0, end);
    return true;
}

} // namespace

HttpTestServer::HttpTestServer(QObject* parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
{
    m_server->listen(QHostAddress::LocalHost, 0);
    m_port = m_server->serverPort();
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server->nextPendingConnection()) {
            // Small writes leave at once, so a trickle reaches the client as separate reads.
            socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            const auto inbox = std::make_shared<QByteArray>();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket, inbox] {
                *inbox += socket->readAll();
                for (Request request; takeRequest(*inbox, request); request = Request()) {
                    m_requests.append(request);
                    emit requestReceived(request);
                    answer(socket, request);
                }
            });
        }
    });
}

void HttpTestServer::setListening(bool on)
{
    if (!on)
        m_server->close();
    else if (!m_server->isListening())
        m_server->listen(QHostAddress::LocalHost, m_port);
}

QVector<HttpTestServer::Request> HttpTestServer::requests(const QByteArray& path) const
{
    QVector<Request> matching;
    std::copy_if(m_requests.cbegin(), m_requests.cend(), std::back_inserter(matching),
        [&](const Request& request) { return path.isEmpty() || request.path == path; });
    return matching;
}

void HttpTestServer::answer(QTcpSocket* socket, const Request& request)
{
    Route& route = m_routes[request.path];
    // A path without a route is not found.
    const Behaviour behaviour
        = route.behaviours.value(qMin(route.served++, route.behaviours.size() - 1), { 404 });
    if (behaviour.silent)
        return;
    if (!behaviour.redirectTo.isEmpty() || behaviour.status != 200) {
        socket->write(behaviour.redirectTo.isEmpty()
                ? statusHead(behaviour.status, 7) + "failure"
                : statusHead(302, 0, "Location: " + behaviour.redirectTo + "\r\n"));
        return;
    }

    // The client only ever asks for "bytes=N-".
    const QByteArray range = request.header("range");
    const QByteArray etag = etagOf(route.body);
    const QByteArray ifRange = request.header("if-range");
    const bool ranged = behaviour.honourRange && range.startsWith("bytes=")
        && (!behaviour.honourIfRange || ifRange.isEmpty() || ifRange == etag);
    const qint64 size = route.body.size();
    const qint64 start = ranged ? range.mid(6).chopped(1).toLongLong() : 0;
    QByteArray extra = "Accept-Ranges: bytes\r\nETag: " + etag + "\r\n";
    if (ranged)
        extra += "Content-Range: bytes " + QByteArray::number(start) + '-' + QByteArray::number(size - 1)
            + '/' + QByteArray::number(size) + "\r\n";
    socket->write(statusHead(ranged ? 206 : 200, size - start, extra));

    const qint64 faultAt = behaviour.cutAfter >= 0 ? behaviour.cutAfter : behaviour.stallAfter;
    const bool fault = faultAt >= 0 && faultAt < size - start;
    send(socket, route.body.mid(int(start), fault ? int(faultAt) : -1), behaviour,
        fault && behaviour.cutAfter >= 0);
}

void HttpTestServer::send(QTcpSocket* socket, QByteArray rest, const Behaviour& behaviour, bool cutAtEnd)
{
    if (socket->state() != QAbstractSocket::ConnectedState)
        return;
    const int chunk = behaviour.chunkSize > 0 ? int(behaviour.chunkSize) : rest.size();
    socket->write(rest.left(chunk));
    rest.remove(0, chunk);
    if (!rest.isEmpty())
        QTimer::singleShot(behaviour.chunkDelayMs, socket, [=] { send(socket, rest, behaviour, cutAtEnd); });
    else if (cutAtEnd)
        socket->disconnectFromHost();
    // A stall ends here too: the rest of the body is never sent, and the connection stays open.
}

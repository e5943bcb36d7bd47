#include "NginxServer.h"

#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

namespace {

int freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

} // namespace

QString NginxServer::program()
{
    return QFile::exists("/usr/sbin/nginx") ? QStringLiteral("/usr/sbin/nginx") : QString();
}

NginxServer::NginxServer(const QString& root)
    : m_port(freePort())
{
    const QString dir = m_dir.path();
    QFile conf(dir + "/nginx.conf");
    if (program().isEmpty() || !conf.open(QIODevice::WriteOnly))
        return;
    conf.write(
        QStringLiteral("daemon off;\nmaster_process off;\nworker_processes 1;\npid %1/nginx.pid;\n"
                       "error_log %1/error.log;\nevents { worker_connections 64; }\nhttp {\n"
                       "  log_format requests escape=none '$request_method $uri $status $http_range';\n"
                       "  access_log %1/access.log requests;\n  sendfile on;\n"
                       "  default_type application/octet-stream;\n  client_body_temp_path %1/body;\n"
                       "  proxy_temp_path %1/proxy;\n  fastcgi_temp_path %1/fastcgi;\n"
                       "  uwsgi_temp_path %1/uwsgi;\n  scgi_temp_path %1/scgi;\n"
                       "  server { listen 127.0.0.1:%2; root %3; }\n}\n")
            .arg(dir)
            .arg(m_port)
            .arg(root)
            .toUtf8());
    conf.close();
    m_process.start(program(), { "-p", dir, "-e", dir + "/error.log", "-c", conf.fileName() });
    m_process.waitForStarted();
    // A server that does not come up shows as isRunning() false or as refused requests.
    (void)QTest::qWaitFor(
        [this] {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, quint16(m_port));
            return socket.waitForConnected(100);
        },
        5000);
}

NginxServer::~NginxServer()
{
    m_process.terminate();
    if (!m_process.waitForFinished(3000))
        m_process.kill();
    m_process.waitForFinished(1000);
}

bool NginxServer::isRunning() const
{
    return m_process.state() == QProcess::Running;
}

QString NginxServer::url(const QString& path) const
{
    return QStringLiteral("http://127.0.0.1:%1/%2").arg(m_port).arg(path);
}

QStringList NginxServer::accessLog() const
{
    QFile log(m_dir.path() + "/access.log");
    if (!log.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts);
}

void NginxServer::clearAccessLog()
{
    QFile::resize(m_dir.path() + "/access.log", 0);
}

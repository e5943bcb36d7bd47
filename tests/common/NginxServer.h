#pragma once

#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

// A private nginx on 127.0.0.1 serving a folder, for tests that need a real web server: its own
// configuration and logs in a temporary folder, a free port, stopped when the object goes away.
// Every request is logged as "METHOD decoded-path status range".
class NginxServer
{
public:
    explicit NginxServer(const QString& root)
    {
        QTcpServer probe; // a port that is free now
        probe.listen(QHostAddress::LocalHost, 0);
        m_port = probe.serverPort();
        probe.close();
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
                .arg(dir, QString::number(m_port), root)
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
    ~NginxServer()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(3000))
            m_process.kill();
        m_process.waitForFinished(1000);
    }
    NginxServer(const NginxServer&) = delete;
    NginxServer& operator=(const NginxServer&) = delete;

    static QString program()
    {
        return QFile::exists("/usr/sbin/nginx") ? QStringLiteral("/usr/sbin/nginx") : QString();
    }
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    QString url(const QString& path = QString()) const
    {
        return QStringLiteral("http://127.0.0.1:%1/%2").arg(m_port).arg(path);
    }
    QStringList accessLog() const
    {
        QFile log(m_dir.filePath("access.log"));
        return log.open(QIODevice::ReadOnly)
            ? QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts)
            : QStringList();
    }
    void clearAccessLog() { QFile::resize(m_dir.filePath("access.log"), 0); }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    int m_port = 0;
};

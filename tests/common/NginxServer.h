#pragma once

#include <QDir>
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
        : m_dir(QStringLiteral("/tmp/core-nginx-XXXXXX"))
    {
        QTcpServer probe; // a port that is free now
        probe.listen(QHostAddress::LocalHost, 0);
        m_port = probe.serverPort();
        probe.close();
        const QString dir = unixPath(m_dir.path());
        QFile conf(m_dir.filePath("nginx.conf"));
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
                .arg(dir, QString::number(m_port), unixPath(root))
                .toUtf8());
        conf.close();
        const QStringList arguments { "-p", dir, "-e", dir + "/error.log", "-c", dir + "/nginx.conf" };
#ifdef Q_OS_WIN
        // Wine starts a Linux program but can neither wait for it nor stop it: it runs detached and
        // is stopped through its pid file.
        m_detached = QProcess::startDetached(program(), arguments);
#else
        m_process.start(program(), arguments);
        m_process.waitForStarted();
#endif
        // A server that does not come up shows as isRunning() false or as refused requests.
        (void)QTest::qWaitFor([this] { return accepts(); }, 5000);
    }
    ~NginxServer()
    {
#ifdef Q_OS_WIN
        QFile pid(m_dir.filePath("nginx.pid"));
        if (m_detached && pid.open(QIODevice::ReadOnly))
            QProcess::startDetached("/bin/kill", { QString::fromLatin1(pid.readAll().trimmed()) });
        (void)QTest::qWaitFor([this] { return !accepts(); }, 3000);
        return;
#endif
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
    // The server is a Linux program, also when a Windows test under Wine starts it: Wine shows the
    // Linux root as drive Z:, so a folder under "/tmp" is "Z:/tmp" to the test and "/tmp" to nginx.
    static QString unixPath(const QString& path)
    {
#ifdef Q_OS_WIN
        if (path.startsWith(QLatin1String("Z:"), Qt::CaseInsensitive))
            return QDir::fromNativeSeparators(path.mid(2));
#endif
        return path;
    }
    bool isRunning() const
    {
#ifdef Q_OS_WIN
        return m_detached && accepts();
#else
        return m_process.state() == QProcess::Running;
#endif
    }
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
    void clearAccessLog()
    {
        QFile::resize(m_dir.filePath("access.log"), 0);
    }

private:
    bool accepts() const
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, quint16(m_port));
        // A refused connection answers at once; under Wine a good one can take longer than 100 ms.
        return socket.waitForConnected(1000);
    }

    QTemporaryDir m_dir;
    bool m_detached = false;
    QProcess m_process;
    int m_port = 0;
};

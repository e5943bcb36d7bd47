#pragma once

#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// A private nginx on 127.0.0.1 serving a folder, for tests that need a real web server: its own
// configuration and logs in a temporary folder, a free port, stopped when the object goes away.
// Every request is logged as "METHOD decoded-path status range".
class NginxServer
{
public:
    explicit NginxServer(const QString& root);
    ~NginxServer();
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
    QStringList accessLog() const;
    void clearAccessLog() { QFile::resize(m_dir.filePath("access.log"), 0); }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    int m_port = 0;
};

#pragma once

#include <QProcess>
#include <QString>
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

    static QString program();
    bool isRunning() const;
    QString url(const QString& path = QString()) const;
    QStringList accessLog() const;
    void clearAccessLog();

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    int m_port = 0;
};

#pragma once

#include "NginxServer.h"
#include "ToolSearchPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

// The built programs against a private nginx, as the end-to-end tests run them: a work folder under
// /tmp (where nginx can read it) whose "www" holds the published channels, and for each test a case
// folder with a copy of core-update in "app" (its settings live beside it) that installs into the
// case's "install" folder, run with --json.
class HostBench
{
public:
    // How the host ended, and the last JSON object it printed of each type.
    struct Run
    {
        int exitCode = -1;
        QMap<QString, QJsonObject> last;
        QStringList notices;

        QString result() const
        {
            return QStringLiteral("%1 %2").arg(exitCode).arg(last["result"]["outcome"].toString());
        }
    };

    // name: a word for the work folder; binDir: where the built programs are, also put on the search
    // path for the host's patch tool.
    HostBench(const QString& name, const QString& binDir)
        : m_work(QStringLiteral("/tmp/core-%1-XXXXXX").arg(name))
        , m_bin(binDir)
    {
        ToolSearchPath::prepend(binDir);
    }

    // A built program of the platform under test: ".exe" added on Windows.
    static QString executable(const QString& folder, const QString& name)
    {
        return folder + '/' + name + ToolSearchPath::executableSuffix();
    }
    // nginx is there and so is the publisher that makes the channels.
    static bool canRun(const QString& publisher)
    {
        return !NginxServer::program().isEmpty() && QFile::exists(publisher);
    }
    // Runs a publisher of this platform to its end: its exit code, -1 when it did not end.
    static int publish(const QString& program, const QStringList& arguments)
    {
        QProcess publisher;
        publisher.start(program, arguments);
        return publisher.waitForFinished(120000) ? publisher.exitCode() : -1;
    }

    QString work() const { return m_work.path(); }
    QString www(const QString& channel) const { return m_work.path() + "/www/" + channel; }
    NginxServer& server() { return *m_nginx; }
    // Serves the work folder's "www"; true when the server runs.
    bool serve()
    {
        m_nginx = std::make_unique<NginxServer>(m_work.path() + "/www");
        return m_nginx->isRunning();
    }

    // A fresh case for the next test and an empty access log; false when the host could not be copied.
    bool newCase()
    {
        m_case = std::make_unique<QTemporaryDir>();
        QDir().mkpath(m_case->path() + "/app");
        m_installDir = m_case->path() + "/install";
        m_nginx->clearAccessLog();
        return QFile::copy(executable(m_bin, "core-update"), program());
    }
    QString casePath() const { return m_case->path(); }
    QString program() const { return executable(m_case->path() + "/app", "core-update"); }
    QString settingsFile() const { return m_case->path() + "/app/config.ini"; }
    QString installDir() const { return m_installDir; }
    void setInstallDir(const QString& folder) { m_installDir = folder; }
    QString game() const { return m_installDir + "/MorvantixGame"; }

    // Starts the case's host on a channel; host: a process prepared by the caller, if any.
    std::unique_ptr<QProcess> start(const QString& command, const QString& channel,
        const QStringList& extra = {}, std::unique_ptr<QProcess> host = nullptr)
    {
        if (!host)
            host = std::make_unique<QProcess>();
        host->start(program(),
            QStringList { command, "--server", m_nginx->url(channel), "--dir", m_installDir, "--json" }
                + extra);
        host->waitForStarted();
        return host;
    }
    Run run(const QString& command, const QString& channel, const QStringList& extra = {})
    {
        const std::unique_ptr<QProcess> host = start(command, channel, extra);
        Run run;
        if (host->waitForFinished(60000))
            run.exitCode = host->exitCode();
        for (const QByteArray& line : host->readAllStandardOutput().split('\n')) {
            const QJsonObject object = QJsonDocument::fromJson(line).object();
            run.last[object["type"].toString()] = object;
            if (object["type"].toString() == "notice")
                run.notices << object["text"].toString();
        }
        return run;
    }

    // The packages and loose files the access log shows fetched, in order.
    QStringList packageRequests() const
    {
        QStringList requests;
        for (const QString& line : m_nginx->accessLog()) {
            if (line.contains(".7z") || line.contains("/files/"))
                requests << line.section(' ', 1, 1);
        }
        return requests;
    }

private:
    QTemporaryDir m_work;
    QString m_bin;
    std::unique_ptr<NginxServer> m_nginx;
    std::unique_ptr<QTemporaryDir> m_case;
    QString m_installDir;
};

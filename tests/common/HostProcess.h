#pragma once

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

// The built update host as the end-to-end tests run it: a case folder with a copy of the program in
// "app" (its settings live beside it), runs with --json, and what the server's access log says was
// fetched.
namespace HostProcess {

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

// A built program of the platform under test: ".exe" added on Windows.
inline QString executable(const QString& folder, const QString& name)
{
#ifdef Q_OS_WIN
    return folder + '/' + name + QStringLiteral(".exe");
#else
    return folder + '/' + name;
#endif
}

const QString kProgramName = QFileInfo(executable(QString(), QStringLiteral("core-update"))).fileName();

// The case's copy of the host.
inline QString program(const QString& casePath)
{
    return casePath + "/app/" + kProgramName;
}

// A fresh case folder holding app/core-update copied from binDir; none when the copy failed.
inline std::unique_ptr<QTemporaryDir> newCase(const QString& binDir)
{
    auto folder = std::make_unique<QTemporaryDir>();
    QDir().mkpath(folder->path() + "/app");
    if (!QFile::copy(binDir + '/' + kProgramName, program(folder->path())))
        return nullptr;
    return folder;
}

// Starts the case's host on the channel at serverUrl, installing into the case's "install" folder.
inline std::unique_ptr<QProcess> start(
    const QString& casePath, const QString& command, const QString& serverUrl, const QStringList& extra = {})
{
    auto host = std::make_unique<QProcess>();
    host->start(program(casePath),
        QStringList { command, "--server", serverUrl, "--dir", casePath + "/install", "--json" } + extra);
    host->waitForStarted();
    return host;
}

inline Run finish(QProcess& host)
{
    Run run;
    if (host.waitForFinished(60000))
        run.exitCode = host.exitCode();
    for (const QByteArray& line : host.readAllStandardOutput().split('\n')) {
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        run.last[object["type"].toString()] = object;
        if (object["type"].toString() == "notice")
            run.notices << object["text"].toString();
    }
    return run;
}

// The packages and loose files an access log shows fetched, in order.
inline QStringList packageRequests(const QStringList& accessLog)
{
    QStringList requests;
    for (const QString& line : accessLog) {
        if (line.contains(".7z") || line.contains("/files/"))
            requests << line.section(' ', 1, 1);
    }
    return requests;
}

} // namespace HostProcess

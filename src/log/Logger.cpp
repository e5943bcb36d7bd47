#include "log/Logger.h"

#include "core/GlobalVar.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>

namespace Logger {

namespace {

QtMessageHandler s_previousHandler = nullptr;
bool s_previousHandlerKept = false;
QString s_runStamp;
QString s_logFilePath;
QString s_customLogPath;

QMutex& logMutex()
{
    static QMutex mutex;
    return mutex;
}

QString taggedText(const QString& tag, const QString& msg)
{
    return QStringLiteral("[%1]:%2").arg(tag, msg);
}

void logToDebugStream(const QString& tag, const QString& msg)
{
    // No source location: module lines are told apart by their tag, and carry "(0)" in the file.
    QMessageLogger(nullptr, 0, nullptr).debug().noquote() << taggedText(tag, msg);
}

QString levelPrefix(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral("Debug/");
    case QtWarningMsg:
        return QStringLiteral("Warning/");
    case QtCriticalMsg:
        return QStringLiteral("Critical/");
    case QtFatalMsg:
        return QStringLiteral("Fatal/");
    case QtInfoMsg:
        return QStringLiteral("Info/");
    }
    return QString();
}

QString sourcePart(const QMessageLogContext& context)
{
    QString file = context.file ? QString::fromUtf8(context.file) : QString();
    file = file.mid(file.lastIndexOf(QLatin1Char('\\')) + 1);
    return QStringLiteral("%1(%2)").arg(file, QString::number(context.line));
}

// The first message of a run keeps the previous run's file under this run's stamp and clears the
// custom log, which another writer fills.
void startRunFile()
{
    const QDateTime now = QDateTime::currentDateTime();
    s_runStamp = now.toString(QStringLiteral("yyyyMMddhhmm"));

    QDir logDir(LogFolderPath());
    if (!logDir.exists())
        QDir().mkpath(logDir.path());
    s_logFilePath = QDir(logDir.absolutePath()).filePath(QStringLiteral("launcher.log"));
    if (QFile::exists(s_logFilePath))
        QFile::rename(s_logFilePath, logDir.absoluteFilePath(QStringLiteral("log_%1.log").arg(s_runStamp)));

    s_customLogPath = QStringLiteral("VKD64/CSLog/customLog.txt");
    QDir().mkpath(QFileInfo(s_customLogPath).path());
    if (QFile::exists(s_customLogPath))
        QFile::remove(s_customLogPath);
}

void appendLine(const QString& line)
{
    QFile file(s_logFilePath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return;
    // Text mode would turn "\r\n" into "\r\r\n" on Windows; the line end is written as bytes.
    file.setTextModeEnabled(false);
    file.write(line.toUtf8());
    file.write("\r\n");
    file.flush();
    file.close();
}

void fileMessageHandler(QtMsgType type, const QMessageLogContext& context, const QString& msg)
{
    if (!Global::Var::bLog)
        return;
    if (s_previousHandler)
        s_previousHandler(type, context, msg);

    QMutexLocker locker(&logMutex());
    const QString time = QDateTime::currentDateTime().toString(QStringLiteral("MM-dd hh:mm:ss.zzz"));
    const QString line
        = QStringLiteral("%1: %2%3: %4").arg(time, levelPrefix(type), sourcePart(context), msg);
    if (s_runStamp.isEmpty())
        startRunFile();
    appendLine(line);
}

} // namespace

void LogInfo(const QString& tag, const QString& msg)
{
    logToDebugStream(tag, msg);
}

void LogDebug(const QString& tag, const QString& msg)
{
    logToDebugStream(tag, msg);
}

void LogWarning(const QString& tag, const QString& msg)
{
    logToDebugStream(tag, msg);
}

void LogCritical(const QString& tag, const QString& msg)
{
    logToDebugStream(tag, msg);
}

void LogFatal(const QString& tag, const QString& msg)
{
    QMessageLogger(nullptr, 0, nullptr).fatal("%s", taggedText(tag, msg).toLatin1().constData());
}

void LogToFile(bool on)
{
    const QtMessageHandler replaced = qInstallMessageHandler(on ? fileMessageHandler : nullptr);
    if (!s_previousHandlerKept && replaced != fileMessageHandler) {
        s_previousHandler = replaced;
        s_previousHandlerKept = true;
    }
}

QString LogFolderPath()
{
    return QDir(QStringLiteral("log")).absolutePath();
}

} // namespace Logger

#include "Archiver.h"

#include "FileStaging.h"
#include "ToolProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace Publish {

Archiver::Archiver(const QString& program, int level, const QString& workDir)
    : m_program(program)
    , m_level(level)
    , m_workDir(workDir)
{ }

int Archiver::LastPercent(const QByteArray& burst)
{
    static const QRegularExpression percent(QStringLiteral("(\\d{1,3})%"));
    int last = -1;
    QRegularExpressionMatchIterator it = percent.globalMatch(QString::fromLatin1(burst));
    while (it.hasNext())
        last = it.next().captured(1).toInt();
    return last <= 100 ? last : -1;
}

QString Archiver::ExitCodeText(int exitCode)
{
    switch (exitCode) {
    case 1:
        return QStringLiteral("warning: some files were not packed");
    case 2:
        return QStringLiteral("fatal error");
    case 7:
        return QStringLiteral("command line error");
    case 8:
        return QStringLiteral("not enough memory");
    case 255:
        return QStringLiteral("stopped");
    default:
        return QStringLiteral("unknown error");
    }
}

Outcome Archiver::pack(const QString& sourceDir, const QStringList& relPaths, const QString& archivePath,
    qint64 partSize, QStringList& written) const
{
    // The names go in a list file: no command line is long enough for a game, and no name is read as a
    // switch.
    const QString listPath
        = QDir(m_workDir).filePath(QFileInfo(archivePath).fileName() + QStringLiteral(".list"));
    Outcome outcome
        = FileStaging::WriteTextFile(listPath, relPaths.join(QLatin1Char('\n')) + QLatin1Char('\n'));
    if (!outcome.ok())
        return outcome;
    if (!QDir().mkpath(QFileInfo(archivePath).absolutePath()))
        return Outcome::Failure(
            ExitCode::OutputFailed, QStringLiteral("cannot create the folder of %1").arg(archivePath));

    QStringList arguments { QStringLiteral("a"), QStringLiteral("-t7z"), QStringLiteral("-mx%1").arg(m_level),
        QStringLiteral("-mtm=off"), QStringLiteral("-mtc=off"), QStringLiteral("-mta=off"),
        QStringLiteral("-bso0"), QStringLiteral("-bsp1"), QStringLiteral("-scsUTF-8"), QStringLiteral("-y") };
    if (partSize > 0)
        arguments << QStringLiteral("-v%1b").arg(partSize);
    arguments << QDir::toNativeSeparators(archivePath)
              << QLatin1Char('@') + QDir::toNativeSeparators(listPath);

    const ToolResult result = RunTool({ m_program, arguments, sourceDir, [this](const QByteArray& burst) {
                                           const int percent = LastPercent(burst);
                                           if (percent >= 0 && m_onPercent)
                                               m_onPercent(percent);
                                       } });
    QFile::remove(listPath);
    if (!result.succeeded()) {
        QString reason = result.describe();
        if (result.ending == ToolResult::Ending::Finished)
            reason = QStringLiteral("%1 (%2)").arg(ExitCodeText(result.exitCode), reason);
        return Outcome::Failure(
            ExitCode::ToolFailed, QStringLiteral("7-Zip failed on %1: %2").arg(archivePath, reason));
    }
    written.clear();
    if (partSize <= 0) {
        written << archivePath;
    } else {
        for (int part = 1;
             QFileInfo::exists(archivePath + QStringLiteral(".%1").arg(part, 3, 10, QLatin1Char('0')));
             ++part)
            written << archivePath + QStringLiteral(".%1").arg(part, 3, 10, QLatin1Char('0'));
    }
    if (written.isEmpty() || !QFileInfo::exists(written.first()))
        return Outcome::Failure(
            ExitCode::ToolFailed, QStringLiteral("7-Zip made no archive %1").arg(archivePath));
    return {};
}

} // namespace Publish

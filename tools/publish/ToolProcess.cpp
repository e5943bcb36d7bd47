#include "ToolProcess.h"

#include <QProcess>
#include <QProcessEnvironment>

namespace Publish {

QString ToolResult::describe() const
{
    switch (ending) {
    case Ending::FailedToStart:
        return QStringLiteral("could not start: %1").arg(errorText);
    case Ending::Crashed:
        return QStringLiteral("crashed %1").arg(errorText).trimmed();
    case Ending::Finished:
        break;
    }
    return QStringLiteral("exit code %1: %2").arg(exitCode).arg(errorText.trimmed());
}

ToolResult RunTool(const ToolRun& run)
{
    QProcess process;
    process.setProgram(run.program);
    process.setArguments(run.arguments);
    if (!run.workingDir.isEmpty())
        process.setWorkingDirectory(run.workingDir);
#ifndef Q_OS_WIN
    // File names travel as UTF-8 whatever the operator's locale, so Chinese names survive the tools.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    process.setProcessEnvironment(environment);
#endif
    ToolResult result;
    process.start(QIODevice::ReadOnly);
    // A program that never started would leave waitForFinished() waiting for nothing.
    if (!process.waitForStarted(-1)) {
        result.errorText = process.errorString();
        return result;
    }
    while (!process.waitForFinished(100)) {
        if (process.state() == QProcess::NotRunning)
            break;
        const QByteArray burst = process.readAllStandardOutput();
        if (!burst.isEmpty() && run.onOutput)
            run.onOutput(burst);
    }
    const QByteArray rest = process.readAllStandardOutput();
    if (!rest.isEmpty() && run.onOutput)
        run.onOutput(rest);
    result.errorText = QString::fromLocal8Bit(process.readAllStandardError());
    result.ending = process.exitStatus() == QProcess::CrashExit ? ToolResult::Ending::Crashed
                                                                : ToolResult::Ending::Finished;
    result.exitCode = process.exitCode();
    return result;
}

} // namespace Publish

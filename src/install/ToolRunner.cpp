#include "install/ToolRunner.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QThread>

namespace ToolRunner {

namespace {

bool stopRequested()
{
    return QThread::currentThread()->isInterruptionRequested();
}

void killAndReap(QProcess& process)
{
    process.kill();
    process.waitForFinished(-1);
}

} // namespace

Result Run(const Request& request)
{
    Result result;
    if (request.program.isEmpty()) {
        result.startError = QStringLiteral("no program");
        return result;
    }
    QProcess process;
    process.start(request.program, request.arguments, QIODevice::ReadWrite);
    // Without this check a missing program would be polled forever: waitForFinished() keeps
    // returning false for a process that never started.
    if (!process.waitForStarted(-1)) {
        result.startError = process.errorString();
        return result;
    }
    // Every tool runs unattended; a prompt must see end of input rather than wait for an answer.
    process.closeWriteChannel();

    QElapsedTimer clock;
    clock.start();
    while (!process.waitForFinished(request.pollMs) && process.state() != QProcess::NotRunning) {
        const QByteArray burst = process.readAllStandardOutput();
        if (!burst.isEmpty() && request.onOutput)
            request.onOutput(burst);
        if (stopRequested()) {
            killAndReap(process);
            result.outcome = Outcome::Cancelled;
            return result;
        }
        if (request.timeoutMs >= 0 && clock.elapsed() >= request.timeoutMs) {
            killAndReap(process);
            result.outcome = Outcome::TimedOut;
            return result;
        }
    }
    result.remainingOutput = process.readAllStandardOutput();
    result.standardError = process.readAllStandardError();
    if (process.exitStatus() == QProcess::CrashExit) {
        result.outcome = Outcome::Crashed;
        return result;
    }
    result.outcome = Outcome::Finished;
    result.exitCode = process.exitCode();
    return result;
}

QString DecodeToolText(const QByteArray& bytes)
{
    return QString::fromLocal8Bit(bytes);
}

} // namespace ToolRunner

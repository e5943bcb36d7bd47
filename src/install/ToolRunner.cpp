#include "install/ToolRunner.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QThread>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <csignal>
#include <unistd.h>
#endif
#ifdef Q_OS_LINUX
#include <sys/prctl.h>
#endif

namespace ToolRunner {

namespace {

// A tool belongs to the program that started it: a Ctrl-C at the terminal is the host's to decide
// on (it may let a merge end), and a host that dies must not leave a tool writing into the game.
class ToolProcess : public QProcess
{
public:
    ToolProcess()
    {
#ifdef Q_OS_WIN
        // Console events go to the process group; a group of its own keeps Ctrl-C from the tool.
        setCreateProcessArgumentsModifier(
            [](QProcess::CreateProcessArguments* args) { args->flags |= CREATE_NEW_PROCESS_GROUP; });
#else
        m_parentPid = ::getpid();
#endif
    }

    // Called once the tool runs: on Windows it joins the job that dies with the host.
    void bindToHost()
    {
#ifdef Q_OS_WIN
        static HANDLE job = [] {
            HANDLE handle = CreateJobObjectW(nullptr, nullptr);
            JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
            limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
            if (handle)
                SetInformationJobObject(handle, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
            return handle;
        }();
        const qint64 pid = processId();
        HANDLE process = OpenProcess(PROCESS_SET_QUOTA | PROCESS_TERMINATE, FALSE, DWORD(pid));
        if (job && process)
            AssignProcessToJobObject(job, process);
        if (process)
            CloseHandle(process);
#endif
    }

protected:
#ifndef Q_OS_WIN
    // Runs in the child between fork and exec: only async-signal-safe calls.
    void setupChildProcess() override
    {
        ::setpgid(0, 0);
#ifdef Q_OS_LINUX
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The host may have died before the line above took effect.
        if (::getppid() != m_parentPid)
            ::_exit(127);
#endif
    }

private:
    pid_t m_parentPid = 0;
#endif
};

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
    ToolProcess process;
    process.start(request.program, request.arguments, QIODevice::ReadWrite);
    // Without this check a missing program would be polled forever: waitForFinished() keeps
    // returning false for a process that never started.
    if (!process.waitForStarted(-1)) {
        result.startError = process.errorString();
        return result;
    }
    process.bindToHost();
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

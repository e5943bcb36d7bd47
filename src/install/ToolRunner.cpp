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
        // Console events go to the process group; a group of its own keeps Ctrl-C from the tool. It
        // starts suspended, so that it runs no instruction before it belongs to the host's job.
        setCreateProcessArgumentsModifier([this](QProcess::CreateProcessArguments* args) {
            args->flags |= CREATE_NEW_PROCESS_GROUP | CREATE_SUSPENDED;
            m_created = args->processInformation;
        });
#else
        m_parentPid = ::getpid();
#endif
    }

    // Called once the tool is started: on Windows it joins the job that dies with the host, and only
    // then runs. False when it cannot be let run.
    bool bindToHost()
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
        if (job)
            AssignProcessToJobObject(job, m_created->hProcess);
        return ResumeThread(m_created->hThread) != DWORD(-1);
#else
        return true;
#endif
    }

#ifdef Q_OS_WIN
private:
    // Filled by CreateProcess with the tool's handles, which QProcess keeps while the tool lives.
    const PROCESS_INFORMATION* m_created = nullptr;
#else
protected:
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
    if (!process.bindToHost()) {
        result.startError = QStringLiteral("the program could not be resumed");
        killAndReap(process);
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

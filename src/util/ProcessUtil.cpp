#include "util/ProcessUtil.h"

#include "core/Timing.h"
#include "log/Logger.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#ifdef Q_OS_WIN
#include <windows.h>

#include <restartmanager.h>
#include <tlhelp32.h>

#include <string>
#include <vector>
#else
#include <csignal>
#include <unistd.h>
#endif

namespace {

const QString kTag = QStringLiteral("ProcessUtil");

// The path as the system reports a running program's: links resolved where the file still exists.
QString comparablePath(const QString& path)
{
    const QFileInfo info(QDir::fromNativeSeparators(path));
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

#ifdef Q_OS_WIN
bool samePath(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// The program a process runs; the Linux branch reads the link /proc/<pid>/exe instead.
QString imagePath(DWORD pid)
{
    const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (!process)
        return QString();
    wchar_t buffer[4 * MAX_PATH];
    DWORD size = DWORD(sizeof(buffer) / sizeof(buffer[0]));
    const bool ok = ::QueryFullProcessImageNameW(process, 0, buffer, &size);
    ::CloseHandle(process);
    return ok ? comparablePath(QString::fromWCharArray(buffer, int(size))) : QString();
}

// A snapshot of the process table; the Linux branch mirrors it with the entries of /proc.
QList<qint64> findByExecutable(const QString& target)
{
    QList<qint64> pids;
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        return pids;
    PROCESSENTRY32W entry;
    entry.dwSize = sizeof(entry);
    for (BOOL more = ::Process32FirstW(snapshot, &entry); more; more = ::Process32NextW(snapshot, &entry)) {
        if (samePath(imagePath(entry.th32ProcessID), target))
            pids.append(entry.th32ProcessID);
    }
    ::CloseHandle(snapshot);
    return pids;
}

// Termination is immediate, as SIGKILL is on Linux; the handle tells when the process is gone.
bool endProcess(qint64 pid, int waitMs)
{
    const HANDLE process = ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, DWORD(pid));
    if (!process)
        return false;
    const bool ended
        = ::TerminateProcess(process, 1) && ::WaitForSingleObject(process, DWORD(waitMs)) == WAIT_OBJECT_0;
    ::CloseHandle(process);
    return ended;
}

// The Restart Manager knows every process with the file open or loaded; the Linux branch mirrors
// it with the open descriptors and the mappings of each process.
QList<ProcessUtil::Entry> findFileHolders(const QString& target)
{
    QList<ProcessUtil::Entry> holders;
    DWORD session = 0;
    wchar_t key[CCH_RM_SESSION_KEY + 1] = {};
    if (::RmStartSession(&session, 0, key) != ERROR_SUCCESS)
        return holders;
    const std::wstring native = QDir::toNativeSeparators(target).toStdWString();
    LPCWSTR files[] = { native.c_str() };
    if (::RmRegisterResources(session, 1, files, 0, nullptr, 0, nullptr) == ERROR_SUCCESS) {
        std::vector<RM_PROCESS_INFO> infos;
        UINT needed = 0;
        UINT count = 0;
        DWORD reasons = 0;
        DWORD result = ERROR_MORE_DATA;
        // The list may grow between the call that sizes it and the one that fills it.
        for (int attempt = 0; attempt < 3 && result == ERROR_MORE_DATA; ++attempt) {
            infos.resize(needed);
            count = needed;
            result = ::RmGetList(session, &needed, &count, infos.data(), &reasons);
        }
        for (UINT i = 0; result == ERROR_SUCCESS && i < count; ++i)
            holders.append(
                { qint64(infos[i].Process.dwProcessId), QString::fromWCharArray(infos[i].strAppName) });
    }
    ::RmEndSession(session);
    return holders;
}
#else
QList<qint64> processIds()
{
    QList<qint64> pids;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool isNumber = false;
        const qint64 pid = entry.toLongLong(&isNumber);
        if (isNumber)
            pids.append(pid);
    }
    return pids;
}

QString linkTarget(const QString& link)
{
    const QByteArray native = QFile::encodeName(link);
    char buffer[4096];
    const ssize_t size = ::readlink(native.constData(), buffer, sizeof(buffer));
    return size > 0 ? QFile::decodeName(QByteArray(buffer, int(size))) : QString();
}

QString procPath(qint64 pid, const char* leaf)
{
    return QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(leaf));
}

// A finished process that is not yet reaped keeps its entry but loses its program link.
bool isRunning(qint64 pid)
{
    return !linkTarget(procPath(pid, "exe")).isEmpty();
}

QList<qint64> findByExecutable(const QString& target)
{
    QList<qint64> pids;
    for (qint64 pid : processIds()) {
        if (linkTarget(procPath(pid, "exe")) == target)
            pids.append(pid);
    }
    return pids;
}

bool endProcess(qint64 pid, int waitMs)
{
    if (::kill(pid_t(pid), SIGKILL) != 0)
        return false;
    QElapsedTimer clock;
    clock.start();
    while (isRunning(pid)) {
        if (clock.elapsed() > waitMs)
            return false;
        QThread::msleep(10);
    }
    return true;
}

bool holdsOpen(qint64 pid, const QString& target)
{
    const QDir fds(procPath(pid, "fd"));
    const QStringList entries = fds.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString& fd : entries) {
        if (linkTarget(fds.filePath(fd)) == target)
            return true;
    }
    return false;
}

bool hasMapped(qint64 pid, const QString& target)
{
    QFile maps(procPath(pid, "maps"));
    if (!maps.open(QIODevice::ReadOnly))
        return false;
    const QByteArray suffix = ' ' + QFile::encodeName(target) + '\n';
    return maps.readAll().contains(suffix);
}

QString processName(qint64 pid)
{
    const QString program = linkTarget(procPath(pid, "exe"));
    if (!program.isEmpty())
        return QFileInfo(program).fileName();
    QFile comm(procPath(pid, "comm"));
    return comm.open(QIODevice::ReadOnly) ? QString::fromUtf8(comm.readAll().trimmed()) : QString();
}

QList<ProcessUtil::Entry> findFileHolders(const QString& target)
{
    QList<ProcessUtil::Entry> holders;
    for (qint64 pid : processIds()) {
        if (linkTarget(procPath(pid, "exe")) == target || holdsOpen(pid, target) || hasMapped(pid, target))
            holders.append({ pid, processName(pid) });
    }
    return holders;
}
#endif

} // namespace

QList<qint64> ProcessUtil::FindByExecutable(const QString& executablePath)
{
    const QList<qint64> pids = findByExecutable(comparablePath(executablePath));
    Logger::LogInfo(kTag, QStringLiteral("%1 process(es) run %2").arg(pids.size()).arg(executablePath));
    return pids;
}

int ProcessUtil::EndProcesses(const QList<qint64>& pids)
{
    int ended = 0;
    for (qint64 pid : pids) {
        // Ending every copy of the launcher's own program must not end the launcher.
        if (pid == QCoreApplication::applicationPid())
            continue;
        if (endProcess(pid, Morvantix::Timing::processEndWaitMs()))
            ++ended;
        else
            Logger::LogInfo(kTag, QStringLiteral("process %1 could not be ended").arg(pid));
    }
    return ended;
}

int ProcessUtil::EndByExecutable(const QString& executablePath)
{
    return EndProcesses(FindByExecutable(executablePath));
}

QList<ProcessUtil::Entry> ProcessUtil::FindFileHolders(const QString& filePath)
{
    const QList<Entry> holders = findFileHolders(comparablePath(filePath));
    for (const Entry& holder : holders)
        Logger::LogInfo(
            kTag, QStringLiteral("%1 (%2) holds %3").arg(holder.name).arg(holder.pid).arg(filePath));
    return holders;
}

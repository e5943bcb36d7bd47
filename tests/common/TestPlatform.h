#pragma once

#include "TestFiles.h"

#ifdef Q_OS_WIN
#include <windows.h>
#endif

// What a test needs to know about the system it runs on beyond the compiler's platform macros.
namespace TestPlatform {

// Wine, as the Windows suite runs on Linux: some Windows services are stubs there.
inline bool runsUnderWine()
{
#ifdef Q_OS_WIN
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version");
#else
    return false;
#endif
}

// The process runs: on Linux not a zombie waiting to be reaped either.
inline bool processRuns(qint64 pid)
{
#ifdef Q_OS_WIN
    const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, DWORD(pid));
    DWORD code = 0;
    const bool running = process && GetExitCodeProcess(process, &code) && code == STILL_ACTIVE;
    if (process)
        CloseHandle(process);
    return running;
#else
    const QByteArray stat = TestFiles::readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    return !stat.isEmpty() && !stat.contains(") Z ");
#endif
}

} // namespace TestPlatform

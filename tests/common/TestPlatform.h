#pragma once

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

} // namespace TestPlatform

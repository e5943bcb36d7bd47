#include "util/DpiUtil.h"

#include "log/Logger.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#ifdef Q_OS_WIN
#include <QLibrary>

#include <windows.h>
#endif

namespace DpiUtil {

namespace {

const QString kTag = QStringLiteral("DpiUtil");
constexpr qreal kBaseDpi = 96.0;

// What Qt itself knows of the screen: with its scaling on, the device pixel ratio carries the
// factor; with it off, the logical DPI does. Their product is right either way.
qreal qtScaleFactor(const QWidget* widget)
{
    QScreen* screen = widget ? widget->screen() : QGuiApplication::primaryScreen();
    if (!screen)
        return 1.0;
    return screen->logicalDotsPerInch() / kBaseDpi * screen->devicePixelRatio();
}

#ifdef Q_OS_WIN
// Resolved at run time: each service exists only from some Windows version on, and the library
// must still load on the older ones.
using SetAwarenessContextFn = BOOL(WINAPI*)(HANDLE); // user32, Windows 10 1703
using SetAwarenessFn = HRESULT(WINAPI*)(int); // shcore, Windows 8.1
using DpiForMonitorFn = HRESULT(WINAPI*)(HMONITOR, int, UINT*, UINT*); // shcore, Windows 8.1
const HANDLE kPerMonitorAwareV2 = reinterpret_cast<HANDLE>(-4); // DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2
constexpr int kProcessPerMonitorDpiAware = 2; // PROCESS_PER_MONITOR_DPI_AWARE
constexpr int kEffectiveDpi = 0; // MDT_EFFECTIVE_DPI

template <typename Fn> Fn resolve(const char* library, const char* function)
{
    return reinterpret_cast<Fn>(QLibrary::resolve(QString::fromLatin1(library), function));
}

// The system-side half of what Qt's scaling does on the other platforms, where a process has no
// awareness to declare. "Access denied" means the awareness was already set (by the manifest or
// an earlier call), which is as good.
bool enableSystemAwareness()
{
    if (const auto setContext = resolve<SetAwarenessContextFn>("user32", "SetProcessDpiAwarenessContext")) {
        if (setContext(kPerMonitorAwareV2) || ::GetLastError() == ERROR_ACCESS_DENIED)
            return true;
    }
    if (const auto setAwareness = resolve<SetAwarenessFn>("shcore", "SetProcessDpiAwareness")) {
        const HRESULT result = setAwareness(kProcessPerMonitorDpiAware);
        if (SUCCEEDED(result) || result == E_ACCESSDENIED)
            return true;
    }
    return ::SetProcessDPIAware() != FALSE;
}

// The monitor's own answer, which follows the window across monitors of different DPI; the Linux
// branch mirrors it with the DPI Qt reports for the widget's screen. 0 when it cannot be asked.
qreal monitorScaleFactor(const QWidget* widget)
{
    const WId window = widget ? widget->window()->internalWinId() : 0;
    const auto dpiForMonitor = resolve<DpiForMonitorFn>("shcore", "GetDpiForMonitor");
    if (!window || !dpiForMonitor)
        return 0.0;
    const HMONITOR monitor = ::MonitorFromWindow(reinterpret_cast<HWND>(window), MONITOR_DEFAULTTONEAREST);
    UINT dpiX = 0;
    UINT dpiY = 0;
    if (FAILED(dpiForMonitor(monitor, kEffectiveDpi, &dpiX, &dpiY)) || dpiX == 0)
        return 0.0;
    return dpiX / kBaseDpi;
}
#endif

} // namespace

bool EnableDpiAwareness()
{
    bool aware = false;
#ifdef Q_OS_WIN
    aware = enableSystemAwareness();
    if (!aware)
        Logger::LogInfo(kTag, QStringLiteral("the system refused DPI awareness: %1").arg(::GetLastError()));
#endif
    // Qt reads the attribute only while it creates the application object.
    if (QCoreApplication::instance()) {
        Logger::LogInfo(kTag, QStringLiteral("Qt scaling not switched on: the application object exists"));
        return aware;
    }
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    return true;
}

qreal GetScaleFactor(const QWidget* widget)
{
#ifdef Q_OS_WIN
    const qreal monitorFactor = monitorScaleFactor(widget);
    if (monitorFactor > 0.0)
        return monitorFactor;
#endif
    return qtScaleFactor(widget);
}

} // namespace DpiUtil

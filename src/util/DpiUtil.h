#pragma once

#include "core/CoreExport.h"

#include <QtGlobal>

class QWidget;

// High-DPI support for the launcher's window: the process is made DPI aware, and a window can ask
// how much larger than 96 DPI the screen it is on draws.
namespace DpiUtil {

// Call before the application object exists. On Windows the process asks the system for per-monitor
// awareness (the newest form the system offers); everywhere Qt's own scaling is switched on. False
// when neither could be done, for example because the application object already exists.
CORE_EXPORT bool EnableDpiAwareness();

// 1.0 at 96 DPI, 1.5 at 144 DPI, for the screen that shows the widget (the primary screen for
// none). On Windows the monitor's effective DPI is asked once the widget's window exists.
CORE_EXPORT qreal GetScaleFactor(const QWidget* widget = nullptr);

} // namespace DpiUtil

#pragma once

#include "core/CoreExport.h"

#include <QString>

// Every module logs through these functions with a module tag. All four non-fatal levels produce
// debug-type messages; the file sink (LogToFile) writes them while Global::Var::bLog is set.
namespace Logger {

CORE_EXPORT void LogInfo(const QString& tag, const QString& msg);
CORE_EXPORT void LogDebug(const QString& tag, const QString& msg);
CORE_EXPORT void LogWarning(const QString& tag, const QString& msg);
CORE_EXPORT void LogCritical(const QString& tag, const QString& msg);
// Ends the process after the message has been written.
[[noreturn]] CORE_EXPORT void LogFatal(const QString& tag, const QString& msg);

// Installs (true) or removes (false) the handler that appends every Qt message to "log/launcher.log".
CORE_EXPORT void LogToFile(bool on);

// The absolute path of the log folder, "log" under the working directory.
CORE_EXPORT QString LogFolderPath();

} // namespace Logger

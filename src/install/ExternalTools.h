#pragma once

#include "core/CoreExport.h"

#include <QString>

// The one place that knows where the external programs live. The application's folder comes first,
// so a launcher ships the tools beside itself; then the system's search path.
namespace ExternalTools {

// The 7-Zip console program: "7z.exe" on Windows; "7z", then Debian's "7zz", elsewhere.
CORE_EXPORT QString SevenZipPath();
// The binary-diff patch program: "hpatchz.exe" on Windows, "hpatchz" elsewhere.
CORE_EXPORT QString DiffPatchPath();

// A user-facing text for a tool that could not be found, naming what was looked for.
CORE_EXPORT QString MissingToolText(const QString& toolName);

} // namespace ExternalTools

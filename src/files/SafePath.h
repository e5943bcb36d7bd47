#pragma once

#include "core/CoreExport.h"

#include <QString>

// Names from server documents decide where files are written and what is deleted. These helpers
// decide whether such a name stays inside the folder it belongs to, whichever separator it uses.
namespace SafePath {

// Not empty, not absolute, no drive letter, no ".." component.
CORE_EXPORT bool IsSafeRelativePath(const QString& relative);
// root joined with relative, cleaned; "" when relative is not safe.
CORE_EXPORT QString ResolveUnder(const QString& root, const QString& relative);
// path is root itself or lies below it, both cleaned; false for an empty root or path.
CORE_EXPORT bool IsInsideFolder(const QString& root, const QString& path);

} // namespace SafePath

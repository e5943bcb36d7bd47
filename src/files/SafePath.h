#pragma once

#include "core/CoreExport.h"

#include <QString>

// The one decision on names that come from outside the program (server documents, file lists, patch
// info files): whether a relative path stays inside the folder it is meant for. A name that fails
// is never opened, written or deleted.
namespace SafePath {

// False for an empty name, a name of only "." parts, a trailing separator (it names a folder, not a
// file), an absolute path, a drive letter and any ".." part, with either separator.
CORE_EXPORT bool IsSafeRelativePath(const QString& relative);

// root joined with relative, cleaned, or "" when relative is not safe or root is empty.
CORE_EXPORT QString ResolveUnder(const QString& root, const QString& relative);

// True when path is root itself or lies below it, both cleaned and with "/" separators.
CORE_EXPORT bool IsInsideFolder(const QString& root, const QString& path);

} // namespace SafePath

#pragma once

#include "core/CoreExport.h"

#include <QString>

// The one decision on names that come from outside (server documents, lists shipped in packages):
// whether a relative path stays inside the folder it belongs to. Every stage that turns such a name
// into a local path asks here, and every delete of a folder derived from data checks the folder with
// IsInsideFolder first. Both separators count on every platform, as the servers write either.
namespace SafePath {

// False for an empty path, one made only of "." parts, one that ends in a separator, an absolute
// path ("/" or "\\" first), a drive letter ("X:") or any other colon, and a ".." part or any other
// part made only of dots and blanks (Windows trims those to "..", or to nothing).
CORE_EXPORT bool IsSafeRelativePath(const QString& relative);

// The cleaned path of relative below root, "/"-separated; empty when relative is not safe or root
// is empty (or blank).
CORE_EXPORT QString ResolveUnder(const QString& root, const QString& relative);

// True when path is root itself or lies below it, once both are "/"-separated and cleaned. Compared
// without regard to case on Windows, as its file systems do.
CORE_EXPORT bool IsInsideFolder(const QString& root, const QString& path);

} // namespace SafePath

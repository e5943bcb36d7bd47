#pragma once

#include "core/CoreExport.h"

#include <QMap>
#include <QString>

namespace Morvantix {

// One entry of a "|"-separated file list: the verify manifest, the patch info file and the two lists
// of the update applier all share this line form.
struct ManifestFileInfo
{
    QString path;
    QString md5;
    quint64 size = 0;
};

// Files keyed by relative path, in ordinary case-sensitive order.
using ManifestFileMap = QMap<QString, ManifestFileInfo>;

// Reads one line: simplified first; path, MD5 and size; a missing field is empty, a size that does not
// parse is 0, fields after the third are ignored. The line must not be empty after simplification.
// wellFormed, when given, tells whether the line held all three fields as a publisher writes them:
// a path, 32 hexadecimal digits and a decimal size.
CORE_EXPORT ManifestFileInfo ReadFileListLine(const QString& line, bool* wellFormed = nullptr);

// Reads a whole file list; blank lines are skipped and a repeated path keeps its last line.
CORE_EXPORT ManifestFileMap ReadFileList(const QString& text);

// Empty when every line of a version's file list is well formed and there is at least one; else what
// is wrong, naming the first bad line. A truncated or empty list, or an error page served in its
// place, would otherwise read as files whose MD5 is empty, which is what a missing file hashes to.
CORE_EXPORT QString FileListFault(const QString& text);

// The line ReadFileListLine reads back into the same record.
CORE_EXPORT QString FileListLine(const ManifestFileInfo& info);

} // namespace Morvantix

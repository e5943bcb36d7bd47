#pragma once

#include "core/CoreExport.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// Synchronous file-system helpers used throughout the library. Failures come back as false, 0 or an
// empty string; diagnostics go to the debug console only. Safe to call from any thread.
namespace QFileUtils {

CORE_EXPORT QString CombinePath(const QString& a, const QString& b);
CORE_EXPORT QString AbsoluteToRelativePath(const QString& base, const QString& path);
CORE_EXPORT QString GetParentPath(const QString& path);

CORE_EXPORT bool IsFileExist(const QString& path);
CORE_EXPORT bool IsDirExist(const QString& path);
CORE_EXPORT bool IsDirEmpty(const QString& path);
CORE_EXPORT qint64 GetFileSize(const QString& path);

// True when the folder did not exist before the call, even if creating it failed: not a success flag.
CORE_EXPORT bool CreateFolder(const QString& path);
CORE_EXPORT bool DeleteFileOrFolder(const QString& path);
// Empties a folder except for the entry named keepName.
CORE_EXPORT bool DeleteFileOrFolder(const QString& path, const QString& keepName);

CORE_EXPORT bool CopyOneFile(const QString& from, const QString& to);
CORE_EXPORT bool MoveOneFile(const QString& from, const QString& to);
// Both copy and move a link to a folder as a link, without walking into it.
CORE_EXPORT bool CopyMultiFiles(const QString& fromDir, const QString& toDir);
CORE_EXPORT bool MoveMultiFiles(const QString& fromDir, const QString& toDir);

// True when another party holds the file open (a running game, typically).
CORE_EXPORT bool FileIsUsing(const QString& path);
CORE_EXPORT bool IsIgnoreFile(const QString& path, const QVector<QString>& suffixes);

CORE_EXPORT unsigned int GetFileCRC32(const QString& path);
CORE_EXPORT QString GetFileMD5(const QString& path);

CORE_EXPORT QByteArray ReadBytes(const QString& path);
CORE_EXPORT QString ReadText(const QString& path);
CORE_EXPORT bool WriteBytes(const QString& path, const QByteArray& data);
CORE_EXPORT void WriteText(const QString& path, const QString& text);
CORE_EXPORT void WriteUTF8(const QString& path, const QString& text, bool withBom);

// Appends the absolute path of every file below dir (hidden entries skipped, links to folders not
// followed); out is not cleared.
CORE_EXPORT void getFileListUnderDir(const QString& dir, QStringList& out);

CORE_EXPORT void Test();

} // namespace QFileUtils

#pragma once

#include "Outcome.h"
#include "install/ManifestFileInfo.h"

#include <QString>

#include <functional>

namespace Publish {

// Byte work on files: every read of a game file computes its MD5 on the way, so a file is read once
// whether it is hashed, copied or both.
namespace FileStaging {

using ByteCounter = std::function<void(qint64 bytes)>;

// The MD5 of a file as lower-case hexadecimal text, the form the verifier compares.
Outcome Md5Of(const QString& path, QString& md5, const ByteCounter& onBytes = {});

// Copies from to to (creating its folders) and gives the MD5 of the bytes copied. The copy gets fixed
// permissions, executable or not, so archives made from it do not depend on the umask.
Outcome CopyWithMd5(
    const QString& from, const QString& to, bool bExecutable, QString& md5, const ByteCounter& onBytes = {});

// A hard link where the file system has them, so no bytes move; a copy elsewhere.
Outcome LinkOrCopy(const QString& from, const QString& to);

// Writes text as UTF-8, creating the folders; a short write is an error.
Outcome WriteTextFile(const QString& path, const QString& text);

// A file list: one line per file in path order, each written by the library's line writer.
QString FileListText(const Morvantix::ManifestFileMap& files);

} // namespace FileStaging

} // namespace Publish

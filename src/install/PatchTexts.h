#pragma once

#include <QString>

// The user-facing failure texts of the merge and update stages, and the diff tool's exit codes that
// have a text of their own. Shown to Chinese-speaking users as they stand.
namespace PatchTexts {

// The diff tool's exit codes that stop a merge; every other failure is left to the later verification.
constexpr int kToolOutOfMemory = 22;
constexpr int kToolDiskFull = 24;

inline QString outOfMemory()
{
    return QStringLiteral("电脑运行内存不足，请清理后重试");
}

inline QString diskFull()
{
    return QStringLiteral("电脑磁盘空间不足，请清理后重试");
}

// The text for a diff tool exit code that stops the job, or "" for one that does not.
inline QString toolExitText(int exitCode)
{
    if (exitCode == kToolOutOfMemory)
        return outOfMemory();
    if (exitCode == kToolDiskFull)
        return diskFull();
    return QString();
}

// A game file the merge could not replace, delete or patch.
inline QString mergeFileInUse(const QString& path)
{
    return QStringLiteral("文件%1被占用中，无法修改或删除，请解除占用或者删除后再进行重试").arg(path);
}

// A launcher file the update could not replace or delete.
inline QString updateFileInUse(const QString& path)
{
    return QStringLiteral("文件%1被占用中，无法修改，请解除占用后重试").arg(path);
}

// A file list or patch info entry that names a place outside the folder it belongs to.
inline QString unsafeEntry(const QString& entry)
{
    return QStringLiteral("更新文件列表中的路径不安全：%1 (unsafe path in the file list)").arg(entry);
}

// The end of a job stopped because the launcher is going away; nobody is left to read it.
inline QString cancelled()
{
    return QStringLiteral("更新已取消 (cancelled)");
}

} // namespace PatchTexts

#include "install/UpdateThread.h"

#include "core/GlobalVar.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "install/PatchTexts.h"
#include "log/Logger.h"

#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {

const QString kTag = QStringLiteral("UpdateThread");
const QDir::Filters kAllEntries = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

// Installers of runtimes the game needs. They may be running, or held by the system, while the
// launcher updates; an old copy of one left in place does no harm.
bool IsPrerequisiteInstaller(const QString& path)
{
    return path.contains(QLatin1String("dxwebsetup")) || path.contains(QLatin1String("vc_redist"))
        || path.contains(QLatin1String("MicrosoftEdgeWebview2Setup"));
}

bool IsInUpdaterFolder(QString path)
{
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return path.startsWith(Global::Var::UpdateGUI + QLatin1Char('/'));
}

} // namespace

UpdateThread::UpdateThread(QObject* parent)
    : QThread(parent)
{
    connect(this, &QThread::finished, this, &UpdateThread::finishedThread);
}

void UpdateThread::finishedThread()
{
    emit UpdateFinished(m_errString);
}

bool UpdateThread::Fail(const QString& errString)
{
    m_errString = errString;
    return false;
}

void UpdateThread::run()
{
    qDebug() << "running";
    m_errString.clear();
    oldFiles = Morvantix::ReadFileList(oldFileListText);
    newFiles = Morvantix::ReadFileList(newFileListText);
    if (!CheckPaths() || !DeleteDroppedFiles())
        return;
    const QString staging = QFileUtils::CombinePath(installRoot, Global::Var::UpdateGUITemp);
    if (!TryDelete(staging))
        return;
    const QString updaterSource = QFileUtils::CombinePath(sourceRoot, Global::Var::UpdateGUI);
    const int total = CountTotal(updaterSource);
    int count = 0;
    if (!CopyFolder(updaterSource, staging, true, count, total) || !CopyNewFiles(count, total))
        return;
    if (count == total)
        RemoveDownloadArea();
}

// Every name is checked before the first file changes, so a hostile list changes nothing.
bool UpdateThread::CheckPaths()
{
    for (const QString& path : oldFiles.keys()) {
        if (SafePath::ResolveUnder(installRoot, path).isEmpty())
            return Fail(PatchTexts::unsafeEntry(path));
    }
    for (const QString& path : newFiles.keys()) {
        if (SafePath::ResolveUnder(installRoot, path).isEmpty()
            || SafePath::ResolveUnder(sourceRoot, path).isEmpty())
            return Fail(PatchTexts::unsafeEntry(path));
    }
    return true;
}

bool UpdateThread::DeleteDroppedFiles()
{
    for (const QString& path : oldFiles.keys()) {
        if (isInterruptionRequested())
            return Fail(PatchTexts::cancelled());
        if (IsInUpdaterFolder(path) || newFiles.contains(path))
            continue;
        const QString full = QFileUtils::CombinePath(installRoot, path);
        Logger::LogInfo(kTag, QStringLiteral("Delete file %1").arg(full));
        if (!TryDelete(full))
            return false;
    }
    return true;
}

bool UpdateThread::CopyNewFiles(int& count, int total)
{
    for (const QString& path : newFiles.keys()) {
        if (isInterruptionRequested())
            return Fail(PatchTexts::cancelled());
        if (IsInUpdaterFolder(path))
            continue;
        const QString src = QFileUtils::CombinePath(sourceRoot, path);
        QString dst = QFileUtils::CombinePath(installRoot, path);
        Logger::LogInfo(kTag, QStringLiteral("copy %1 to %2").arg(src, dst));
        // The launcher plays its background video while it runs; the new one waits beside it.
        if (dst.contains(QLatin1String("bg.wmv")))
            dst += QStringLiteral(".copy");
        if (!QFileUtils::CopyOneFile(src, dst) && !IsPrerequisiteInstaller(src))
            return Fail(PatchTexts::updateFileInUse(dst));
        ++count;
        emit UpdateProgress(count, total);
    }
    return true;
}

bool UpdateThread::TryDelete(const QString& path)
{
    qDebug() << "cannotDeleteFileOrFolder" << path;
    const QFileInfo info(path);
    if (!info.isFile() && !info.isDir())
        return true;
    if (QFileUtils::DeleteFileOrFolder(path))
        return true;
    if (IsPrerequisiteInstaller(path)) {
        qDebug() << path << " is using ";
        return true;
    }
    return Fail(PatchTexts::updateFileInUse(path));
}

bool UpdateThread::CopyFolder(
    const QString& fromDir, const QString& toDir, bool overwrite, int& count, int total)
{
    const QDir target(toDir);
    if (!target.exists() && !QDir().mkpath(target.absolutePath()))
        return Fail(PatchTexts::updateFileInUse(toDir));
    for (const QFileInfo& entry : QDir(fromDir).entryInfoList(kAllEntries)) {
        if (isInterruptionRequested())
            return Fail(PatchTexts::cancelled());
        const QString targetPath = target.filePath(entry.fileName());
        if (entry.isDir()) {
            if (!CopyFolder(entry.filePath(), targetPath, overwrite, count, total))
                return false;
            continue;
        }
        if (overwrite && QFileInfo::exists(targetPath))
            QFile::remove(targetPath);
        if (!QFile::copy(entry.filePath(), targetPath))
            return Fail(PatchTexts::updateFileInUse(targetPath));
        ++count;
        emit UpdateProgress(count, total);
        // Says "move" although the file is copied: log readers search for this text.
        Logger::LogInfo(kTag, QStringLiteral("move file %1 => %2").arg(entry.filePath(), targetPath));
    }
    return true;
}

// The files the run copies: those of the new updater folder and the list's entries outside it.
int UpdateThread::CountTotal(const QString& updaterSource) const
{
    int total = 0;
    QDirIterator files(
        updaterSource, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    for (; files.hasNext(); files.next())
        ++total;
    for (const QString& path : newFiles.keys())
        total += IsInUpdaterFolder(path) ? 0 : 1;
    return total;
}

// The download staging area is the parent of the source folder. The launcher builds both paths, but
// a wrong one must never cost the user a drive or the installation itself.
void UpdateThread::RemoveDownloadArea()
{
    const QString area = QDir::cleanPath(QFileUtils::GetParentPath(sourceRoot));
    const bool safe = QDir::isAbsolutePath(sourceRoot) && !area.isEmpty() && !QDir(area).isRoot()
        && area != QDir::cleanPath(sourceRoot) && !SafePath::IsInsideFolder(area, installRoot);
    if (!safe) {
        Logger::LogInfo(kTag, QStringLiteral("keep download area %1").arg(area));
        return;
    }
    QFileUtils::DeleteFileOrFolder(area);
}

#include "install/MergeThread.h"

#include "core/Timing.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "install/ExternalTools.h"
#include "install/PatchTexts.h"
#include "install/ToolRunAhead.h"
#include "install/ToolRunner.h"
#include "log/Logger.h"

#include <QDebug>
#include <QFileInfo>
#include <QStringList>

namespace {

const QString kTag = QStringLiteral("MergeThread");
const QString kListTag = QStringLiteral("mergethread");
constexpr int kAttempts = 3;

// A diff entry names the file it rebuilds followed by ".patch".
QString RelPathOfDiff(const QString& name)
{
    return name.left(name.indexOf(QLatin1String(".patch")));
}

bool IsSafeUnder(const QString& root, const QString& relative)
{
    return !SafePath::ResolveUnder(root, relative).isEmpty();
}

QStringList MergeArguments(const MergeTask& task)
{
    QStringList arguments { task.oldPath, task.diffPath, task.outPath, QStringLiteral("-f"),
        QStringLiteral("-s-1m"), QStringLiteral("-C-old-new-diff") };
    if (QFileInfo(task.oldPath).isDir())
        arguments << QStringLiteral("-c");
    return arguments;
}

// One run of the diff tool to its end, with everything it wrote to standard output.
ToolRunner::Result RunDiffTool(const QString& tool, const QStringList& arguments)
{
    QByteArray output;
    ToolRunner::Request request;
    request.program = tool;
    request.arguments = arguments;
    request.timeoutMs = Morvantix::Timing::toolWaitMs();
    request.onOutput = [&output](const QByteArray& burst) { output += burst; };
    ToolRunner::Result result = ToolRunner::Run(request);
    result.remainingOutput.prepend(output);
    return result;
}

// Two diffs may run at once only when each rebuilds a plain file of its own; the same file reached
// by two names, or a folder that may hold the other file, waits for the diff before it.
bool CanRunAlongside(const MergeTask& first, const MergeTask& second)
{
    const QFileInfo a(first.oldPath);
    const QFileInfo b(second.oldPath);
    if (!a.isFile() || !b.isFile())
        return false;
    // For two files, "inside" can only mean the same path, with the platform's regard for case.
    return !SafePath::IsInsideFolder(a.canonicalFilePath(), b.canonicalFilePath());
}

} // namespace

MergeThread::MergeThread(QObject* parent)
    : QThread(parent)
{
    qRegisterMetaType<Morvantix::MergeStatus>("Morvantix::MergeStatus");
    connect(this, &QThread::finished, this, &MergeThread::finishedThread);
}

void MergeThread::LoadPatchInfo(
    const QString& manifestFilePath, const QString& targetPath, const QString& tempPath)
{
    m_bHasError = false;
    m_errorString.clear();
    Logger::LogInfo(kTag, QStringLiteral("manifestFilePath is %1").arg(manifestFilePath));
    Logger::LogInfo(kTag, QStringLiteral("_targetPath is %1").arg(targetPath));
    Logger::LogInfo(kTag, QStringLiteral("_tempPath is %1").arg(tempPath));
    m_patchDir = QFileUtils::GetParentPath(manifestFilePath);
    m_patchInfo = Morvantix::ReadPatchInfo(QFileUtils::ReadText(manifestFilePath));
    m_targetPath = targetPath;
    m_tempPath = tempPath;
}

void MergeThread::run()
{
    // Every name is checked before the first file changes, so a hostile package changes nothing.
    if (!CheckPaths())
        return;
    QFileUtils::CreateFolder(m_tempPath);
    BuildMergeList();
    if (!m_bNoMerge && !MergeFiles())
        return;
    AddFiles();
    DeleteFiles();
}

void MergeThread::finishedThread()
{
    emit MergeFinished(m_errorString);
}

void MergeThread::Fail(const QString& errorString)
{
    m_bHasError = true;
    m_errorString = errorString;
}

bool MergeThread::CheckPaths()
{
    QString unsafe;
    for (const QString& name : m_patchInfo.patchFiles.keys()) {
        if (!IsSafeUnder(m_patchDir, name) || !IsSafeUnder(m_targetPath, RelPathOfDiff(name)))
            unsafe = name;
    }
    for (const QString& path : m_patchInfo.newFiles.keys()) {
        if (!IsSafeUnder(m_patchDir, path) || !IsSafeUnder(m_targetPath, path))
            unsafe = path;
    }
    for (const QString& path : m_patchInfo.delFiles.keys()) {
        if (!IsSafeUnder(m_targetPath, path))
            unsafe = path;
    }
    if (unsafe.isEmpty())
        return true;
    Logger::LogInfo(kTag, QStringLiteral("unsafe path %1").arg(unsafe));
    Fail(PatchTexts::unsafeEntry(unsafe));
    return false;
}

void MergeThread::BuildMergeList()
{
    m_mergeList.clear();
    Logger::LogInfo(kListTag, QStringLiteral("patchFile begin"));
    for (const QString& name : m_patchInfo.patchFiles.keys()) {
        Logger::LogInfo(kListTag, QStringLiteral("=> %1").arg(name));
        MergeTask task;
        task.relPath = RelPathOfDiff(name);
        task.oldPath = QFileUtils::CombinePath(m_targetPath, task.relPath);
        task.diffPath = QFileUtils::CombinePath(m_patchDir, name);
        task.outPath = task.oldPath;
        m_mergeList.push_back(task);
    }
    Logger::LogInfo(kListTag, QStringLiteral("patchFile end"));
}

bool MergeThread::MergeFiles()
{
    Logger::LogInfo(QStringLiteral("MergeTag"), QStringLiteral("MergeThread Run"));
    m_total = int(m_mergeList.size());
    m_index = 0;
    if (m_mergeList.empty())
        return true;
    const QString tool = ExternalTools::DiffPatchPath();
    if (tool.isEmpty()) {
        Fail(ExternalTools::MissingToolText(QStringLiteral("hpatchz")));
        return false;
    }
    // The first run of the next diff starts while this one is applied, so that one file's flush to
    // disk overlaps the next file's work. Everything about a file is still reported in list order.
    std::unique_ptr<ToolRunAhead> ahead;
    QStringList aheadArguments;
    for (size_t i = 0; i < m_mergeList.size(); ++i) {
        if (isInterruptionRequested()) {
            Fail(PatchTexts::cancelled());
            return false;
        }
        ++m_index;
        Logger::LogInfo(kTag, QStringLiteral("MergeIndex:%1").arg(m_index));
        const std::unique_ptr<ToolRunAhead> firstRun = std::move(ahead);
        const QStringList arguments = firstRun ? aheadArguments : MergeArguments(m_mergeList[i]);
        if (i + 1 < m_mergeList.size() && CanRunAlongside(m_mergeList[i], m_mergeList[i + 1])) {
            aheadArguments = MergeArguments(m_mergeList[i + 1]);
            ahead.reset(new ToolRunAhead([tool, next = aheadArguments] { return RunDiffTool(tool, next); }));
        }
        if (!MergeOne(tool, m_mergeList[i], arguments, firstRun.get()))
            return false;
        emit MergeProgress(m_index, m_total, QVariant::fromValue(Morvantix::MergeStatusPatch));
    }
    return true;
}

bool MergeThread::MergeOne(
    const QString& tool, const MergeTask& task, const QStringList& arguments, ToolRunAhead* firstRun)
{
    qDebug().noquote() << "MergeThread " + tool + QLatin1Char(' ') + arguments.join(QLatin1Char(' '));

    int exitCode = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const ToolRunner::Result result
            = attempt == 0 && firstRun ? firstRun->take() : RunDiffTool(tool, arguments);
        qDebug().noquote() << "hpatch.exe output:" << ToolRunner::DecodeToolText(result.remainingOutput);

        if (result.outcome == ToolRunner::Outcome::Cancelled) {
            Fail(PatchTexts::cancelled());
            return false;
        }
        // A tool that runs this long is stuck on a file someone else holds; retrying would not help.
        if (result.outcome == ToolRunner::Outcome::TimedOut) {
            Fail(PatchTexts::mergeFileInUse(task.oldPath));
            qDebug().noquote() << "MergeThread "
                               << " 30min later,hpatchz.exe still running";
            return false;
        }
        exitCode = result.outcome == ToolRunner::Outcome::Finished ? result.exitCode : -1;
        qDebug() << "MergeThread exitCode:" << exitCode;
        if (exitCode == 0)
            return true;
        const QString errors = result.outcome == ToolRunner::Outcome::FailedToStart
            ? result.startError
            : ToolRunner::DecodeToolText(result.standardError);
        if (!errors.isEmpty())
            Logger::LogInfo(QStringLiteral("MergeThread error"), QStringLiteral("output is %1").arg(errors));
    }
    // Only a machine short of memory or disk stops the job; any other failure leaves a file that the
    // verification after the patch finds and repairs.
    const QString fatal = PatchTexts::toolExitText(exitCode);
    if (fatal.isEmpty())
        return true;
    Fail(fatal);
    qDebug().noquote() << "MergeThread fatalError:" << fatal;
    return false;
}

void MergeThread::AddFiles()
{
    if (m_bHasError)
        return;
    const int total = m_patchInfo.newFiles.size();
    int counter = 0;
    for (const QString& path : m_patchInfo.newFiles.keys()) {
        if (isInterruptionRequested())
            return Fail(PatchTexts::cancelled());
        ++counter;
        const QString src = QFileUtils::CombinePath(m_patchDir, path);
        const QString dst = QFileUtils::CombinePath(m_targetPath, path);
        Logger::LogInfo(kTag, QStringLiteral("AddFile %1 To %2").arg(src, dst));
        emit MergeProgress(counter, total, QVariant::fromValue(Morvantix::MergeStatusAdd));
        if (QFileUtils::IsFileExist(src) && !QFileUtils::CopyOneFile(src, dst))
            return Fail(PatchTexts::mergeFileInUse(dst));
    }
}

void MergeThread::DeleteFiles()
{
    if (m_bHasError)
        return;
    const int total = m_patchInfo.delFiles.size();
    int counter = 0;
    for (const QString& path : m_patchInfo.delFiles.keys()) {
        if (isInterruptionRequested())
            return Fail(PatchTexts::cancelled());
        ++counter;
        const QString full = QFileUtils::CombinePath(m_targetPath, path);
        emit MergeProgress(counter, total, QVariant::fromValue(Morvantix::MergeStatusDelete));
        if (QFileInfo::exists(full) && !QFileUtils::DeleteFileOrFolder(full))
            return Fail(PatchTexts::mergeFileInUse(full));
        Logger::LogInfo(kTag, QStringLiteral("DeleteFile %1").arg(full));
    }
}

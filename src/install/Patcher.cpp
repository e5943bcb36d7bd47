#include "install/Patcher.h"

#include "core/GlobalVar.h"
#include "core/WorkerThreads.h"
#include "files/QFileUtils.h"
#include "install/MergeThread.h"
#include "install/UpdateThread.h"
#include "log/Logger.h"

#include <QCoreApplication>

Patcher* Patcher::m_pPatcherInstance = nullptr;

Patcher* Patcher::GetInstance()
{
    if (!m_pPatcherInstance)
        m_pPatcherInstance = new Patcher(QCoreApplication::instance());
    return m_pPatcherInstance;
}

Patcher::Patcher(QObject* parent)
    : QObject(parent)
    , m_mergeThread(new MergeThread(this))
    , m_updateThread(new UpdateThread(this))
{
    connect(m_mergeThread.data(), &MergeThread::MergeProgress, this, &Patcher::MergeProgress);
    connect(m_mergeThread.data(), &MergeThread::MergeFinished, this, &Patcher::MergeComplete);
    connect(m_updateThread.data(), &UpdateThread::UpdateProgress, this, &Patcher::UpdateProgress);
    connect(m_updateThread.data(), &UpdateThread::UpdateFinished, this, &Patcher::UpdateComplete);
}

Patcher::~Patcher()
{
    if (m_pPatcherInstance) {
        m_callback = nullptr;
        WorkerThreads::stopAndDelete(m_mergeThread);
        WorkerThreads::stopAndDelete(m_updateThread);
    }
    m_pPatcherInstance = nullptr;
}

void Patcher::RegistCallbackFunc(std::function<void(Morvantix::PatcherCallbackInfo&)> callback)
{
    m_callback = std::move(callback);
}

void Patcher::StartApplyPatch(Morvantix::GameUpdateContext& ctx)
{
    if (!m_mergeThread || !m_updateThread)
        return;
    // Both stages write into folders the other may be reading; one job at a time.
    if (m_mergeThread->isRunning() || m_updateThread->isRunning()) {
        Logger::LogInfo(QStringLiteral("Verifyer"), QStringLiteral("m_VerifyThread->isRunning"));
        return;
    }
    const QString manifestFilePath
        = QFileUtils::CombinePath(ctx.m_patchFolder, Global::Var::PatchManifestName);
    m_mergeThread->m_bPatchMerge = ctx.m_bLimitSpeed;
    if (ctx.m_bLimitSpeed) {
        Logger::LogInfo(
            QStringLiteral("Patcher"), QStringLiteral("manifestFilePath is %1").arg(manifestFilePath));
        m_mergeThread->LoadPatchInfo(manifestFilePath, ctx.m_mergeTargetPath, ctx.m_mergeTempPath);
        m_mergeThread->m_bNoMerge = ctx.m_bSkipDiffMerge;
        m_mergeThread->start(QThread::InheritPriority);
        return;
    }
    m_updateThread->installRoot = ctx.m_updateInstallRoot;
    m_updateThread->sourceRoot = ctx.m_updateSourceRoot;
    m_updateThread->oldFileListText = ctx.m_updateOldFileList;
    m_updateThread->newFileListText = ctx.m_updateNewFileList;
    m_updateThread->start(QThread::InheritPriority);
}

void Patcher::Report(bool bComplete)
{
    m_callbackInfo.bComplete = bComplete;
    m_callback(m_callbackInfo);
}

void Patcher::MergeProgress(int percent, int totalpercent, QVariant status)
{
    if (!m_callback)
        return;
    m_callbackInfo.status = status.canConvert<Morvantix::MergeStatus>()
        ? int(status.value<Morvantix::MergeStatus>())
        : int(Morvantix::MergeStatusPatch);
    m_callbackInfo.bError = false;
    m_callbackInfo.totalpercent = totalpercent;
    m_callbackInfo.percent = percent;
    Report(false);
}

void Patcher::UpdateProgress(int percent, int totalpercent)
{
    if (!m_callback)
        return;
    m_callbackInfo.bError = false;
    m_callbackInfo.percent = percent;
    m_callbackInfo.totalpercent = totalpercent;
    Report(false);
}

// A failed merge is reported with bComplete false, a failed update with bComplete true; the
// launcher tells the two stages' endings apart this way.
void Patcher::MergeComplete(const QString& errorString)
{
    if (!m_callback)
        return;
    m_callbackInfo.bError = !errorString.isEmpty();
    m_callbackInfo.errorString = errorString;
    Report(errorString.isEmpty());
}

void Patcher::UpdateComplete(const QString& errString)
{
    if (!m_callback)
        return;
    m_callbackInfo.bError = !errString.isEmpty();
    m_callbackInfo.errorString = errString;
    Report(true);
}

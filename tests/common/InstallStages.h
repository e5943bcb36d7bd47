#pragma once

#include "CallbackRecorder.h"

#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"
#include "core/PatchComponent.h"
#include "core/UnZipComponent.h"

// The library's unpack and merge stages started through their components on the one job context, as
// the launcher starts them; the recorder sees every report. Each returns true when the job ended
// exactly once.
namespace InstallStages {

// A merge ends with either flag.
inline bool mergeEnded(const Morvantix::PatcherCallbackInfo& info)
{
    return info.bComplete || info.bError;
}

// startTwice: a second job, of every archive twice, is started while the first one runs.
inline bool unZip(CallbackRecorder<Morvantix::UnZipCallbackInfo>& recorder, const QStringList& archives,
    const QString& folder, int updateType = Morvantix::UpdateType::Update, bool startTwice = false)
{
    auto ctx = Morvantix::CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_unZipFileList = archives;
    ctx->m_unZipFolder = folder;
    ctx->m_updateType = updateType;
    return recorder.run(Morvantix::GetUnZipComponent(), [&] {
        Morvantix::GetUnZipComponent()->StartUnZip(*ctx);
        if (startTwice) {
            ctx->m_unZipFileList = archives + archives;
            Morvantix::GetUnZipComponent()->StartUnZip(*ctx);
        }
    });
}

// merge: an unpacked patch package applied to the game; otherwise the update applier's lists, set by
// the caller, replace the installed files.
inline bool merge(CallbackRecorder<Morvantix::PatcherCallbackInfo>& recorder, const QString& package,
    const QString& game, const QString& temp, bool merge = true, bool skipDiffMerge = false)
{
    auto ctx = Morvantix::CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_bLimitSpeed = merge;
    ctx->m_bSkipDiffMerge = skipDiffMerge;
    ctx->m_patchFolder = package;
    ctx->m_mergeTargetPath = game;
    ctx->m_mergeTempPath = temp;
    // A 50 MB merge under Wine takes its time.
    return recorder.run(
        Morvantix::GetPatchComponent(), [&] { Morvantix::GetPatchComponent()->StartApplyPatch(*ctx); },
        60000);
}

} // namespace InstallStages

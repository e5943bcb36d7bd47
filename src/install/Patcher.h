#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>

#include <functional>

class MergeThread;
class UpdateThread;

// Applies what the unzip stage unpacked: a patch package to the game (the merge stage) or a new set
// of the launcher's own files (the update stage), and reports both through one callback.
class CORE_EXPORT Patcher : public QObject
{
    Q_OBJECT
public:
    static Patcher* GetInstance();
    ~Patcher() override;

    virtual void RegistCallbackFunc(std::function<void(Morvantix::PatcherCallbackInfo&)> callback);
    // The context's m_bLimitSpeed chooses the stage: true merges a patch package, false updates the
    // launcher's files. Returns at once; the result arrives in the callback.
    void StartApplyPatch(Morvantix::GameUpdateContext& ctx);

private slots:
    void MergeProgress(int percent, int totalpercent, QVariant status);
    void UpdateProgress(int percent, int totalpercent);
    void MergeComplete(const QString& errorString);
    void UpdateComplete(const QString& errString);

private:
    explicit Patcher(QObject* parent);
    void Report(bool bComplete);

    static Patcher* m_pPatcherInstance;
    QPointer<MergeThread> m_mergeThread;
    QPointer<UpdateThread> m_updateThread;
    std::function<void(Morvantix::PatcherCallbackInfo&)> m_callback;
    Morvantix::PatcherCallbackInfo m_callbackInfo;
};

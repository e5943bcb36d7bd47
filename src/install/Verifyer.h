#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"

#include <QObject>
#include <QPointer>

#include <functional>

class VerifyThread;

// Checks downloaded archives by MD5, or an install against its file list by size or MD5, on a worker
// thread, and reports through one callback.
class CORE_EXPORT Verifyer : public QObject
{
    Q_OBJECT
public:
    static Verifyer* GetInstance();
    ~Verifyer() override;

    virtual void RegistCallbackFunc(std::function<void(Morvantix::VerifyCallbackInfo&)> callback);
    void StartVerify(Morvantix::GameUpdateContext& ctx);

private slots:
    void VerifyProgress(float percent);
    void VerifyComplete(bool bError, bool bSingle);

private:
    explicit Verifyer(QObject* parent);

    static Verifyer* m_pVerifyerInstance;
    QPointer<VerifyThread> m_VerifyThread;
    std::function<void(Morvantix::VerifyCallbackInfo&)> m_callback;
    Morvantix::VerifyCallbackInfo m_callbackInfo;
};

#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"

#include <QObject>
#include <QPointer>

#include <functional>

class CheckerThread;

// Tells the launcher whether any file of a folder is in use before the folder's files are replaced.
class CORE_EXPORT Checker : public QObject
{
    Q_OBJECT
public:
    static Checker* GetInstance();
    ~Checker() override;

    virtual void RegistCallbackFunc(std::function<void(Morvantix::CheckCallbackInfo&)> callback);
    void StartCheck(Morvantix::GameUpdateContext& ctx);

private slots:
    void CheckProgress(float percent);
    void CheckComplete(bool bError, QString errorPath);

private:
    explicit Checker(QObject* parent);

    static Checker* m_pCheckerInstance;
    QPointer<CheckerThread> m_checkerThread;
    std::function<void(Morvantix::CheckCallbackInfo&)> m_callback;
    Morvantix::CheckCallbackInfo m_callbackInfo;
};

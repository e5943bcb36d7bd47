#include "core/Checker.h"

#include "core/CheckerThread.h"
#include "core/WorkerThreads.h"
#include "log/Logger.h"

#include <QCoreApplication>

Checker* Checker::m_pCheckerInstance = nullptr;

Checker* Checker::GetInstance()
{
    if (!m_pCheckerInstance)
        m_pCheckerInstance = new Checker(QCoreApplication::instance());
    return m_pCheckerInstance;
}

Checker::Checker(QObject* parent)
    : QObject(parent)
    , m_checkerThread(new CheckerThread(this))
{
    connect(m_checkerThread.data(), &CheckerThread::CheckProgress, this, &Checker::CheckProgress);
    connect(m_checkerThread.data(), &CheckerThread::CheckComplete, this, &Checker::CheckComplete);
}

Checker::~Checker()
{
    if (m_pCheckerInstance) {
        m_callback = nullptr;
        WorkerThreads::stopAndDelete(m_checkerThread);
    }
    m_pCheckerInstance = nullptr;
}

void Checker::RegistCallbackFunc(std::function<void(Morvantix::CheckCallbackInfo&)> callback)
{
    m_callback = std::move(callback);
}

void Checker::StartCheck(Morvantix::GameUpdateContext& ctx)
{
    if (!m_checkerThread)
        return;
    if (m_checkerThread->isRunning()) {
        // The verifier's refusal line, shared by every worker that refuses a second start.
        Logger::LogInfo(QStringLiteral("Verifyer"), QStringLiteral("m_VerifyThread->isRunning"));
        return;
    }
    m_checkerThread->m_checkPath = ctx.m_checkPath;
    m_checkerThread->start(QThread::InheritPriority);
}

void Checker::CheckProgress(float percent)
{
    if (!m_callback)
        return;
    m_callbackInfo.percent = percent;
    m_callbackInfo.bComplete = false;
    m_callback(m_callbackInfo);
}

void Checker::CheckComplete(bool bError, QString errorPath)
{
    if (!m_callback)
        return;
    m_callbackInfo.bError = bError;
    m_callbackInfo.bComplete = true;
    m_callbackInfo.errorPath = errorPath;
    m_callback(m_callbackInfo);
}

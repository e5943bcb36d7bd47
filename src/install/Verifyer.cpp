#include "install/Verifyer.h"

#include "core/WorkerThreads.h"
#include "install/VerifyThread.h"
#include "log/Logger.h"

#include <QCoreApplication>

namespace {

const QString kTag = QStringLiteral("Verifyer");

} // namespace

Verifyer* Verifyer::m_pVerifyerInstance = nullptr;

Verifyer* Verifyer::GetInstance()
{
    if (!m_pVerifyerInstance)
        m_pVerifyerInstance = new Verifyer(QCoreApplication::instance());
    return m_pVerifyerInstance;
}

Verifyer::Verifyer(QObject* parent)
    : QObject(parent)
    , m_VerifyThread(new VerifyThread(this))
{
    connect(m_VerifyThread.data(), &VerifyThread::VerifyProgress, this, &Verifyer::VerifyProgress);
    connect(m_VerifyThread.data(), &VerifyThread::VerifyComplete, this, &Verifyer::VerifyComplete);
}

Verifyer::~Verifyer()
{
    if (m_pVerifyerInstance) {
        m_callback = nullptr;
        WorkerThreads::stopAndDelete(m_VerifyThread);
    }
    m_pVerifyerInstance = nullptr;
}

void Verifyer::RegistCallbackFunc(std::function<void(Morvantix::VerifyCallbackInfo&)> callback)
{
    m_callback = std::move(callback);
}

void Verifyer::StartVerify(Morvantix::GameUpdateContext& ctx)
{
    if (!m_VerifyThread)
        return;
    if (m_VerifyThread->isRunning()) {
        Logger::LogInfo(kTag, QStringLiteral("m_VerifyThread->isRunning"));
        return;
    }
    VerifyThread& job = *m_VerifyThread;
    job.m_verifyFolder = ctx.m_installPath;
    job.m_bZip = ctx.m_bVerifyZip;
    job.m_bPatchMerge = ctx.m_bLimitSpeed;
    job.m_bCollectAll = Morvantix::UpdateType::IsRepair(ctx.m_updateType);
    job.m_bMd5 = ctx.m_bMd5Verify;
    job.m_failedList.clear();
    if (!job.m_bZip) {
        job.m_manifestMap = Morvantix::ReadFileList(ctx.m_manifestContent);
    } else {
        job.m_hashList.clear();
        job.m_zipList.clear();
        if (ctx.m_archiveFileList.size() != ctx.m_archiveMd5List.size())
            Logger::LogInfo(kTag, QStringLiteral("size is not equal Error !!!"));
        job.m_zipList.append(ctx.m_archiveFileList);
        job.m_hashList.append(ctx.m_archiveMd5List);
    }
    job.start(QThread::InheritPriority);
}

void Verifyer::VerifyProgress(float percent)
{
    if (!m_callback)
        return;
    m_callbackInfo.percent = percent;
    m_callbackInfo.bComplete = false;
    m_callback(m_callbackInfo);
}

void Verifyer::VerifyComplete(bool bError, bool bSingle)
{
    if (!m_callback)
        return;
    m_callbackInfo.bError = bError;
    m_callbackInfo.bComplete = true;
    m_callbackInfo.bSingle = bSingle;
    // Only the repair kinds collect failures; other jobs leave the caller's last list alone.
    if (m_VerifyThread && m_VerifyThread->m_bCollectAll)
        m_callbackInfo.failedFiles = m_VerifyThread->m_failedList;
    m_callback(m_callbackInfo);
}

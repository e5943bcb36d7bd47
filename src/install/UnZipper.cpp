#include "install/UnZipper.h"

#include "core/WorkerThreads.h"
#include "install/SevenZipOutput.h"
#include "install/ZipThread.h"
#include "log/Logger.h"

#include <QCoreApplication>

UnZipper* UnZipper::m_pUnzipperInstance = nullptr;

UnZipper* UnZipper::GetInstance()
{
    if (!m_pUnzipperInstance)
        m_pUnzipperInstance = new UnZipper(QCoreApplication::instance());
    return m_pUnzipperInstance;
}

UnZipper::UnZipper(QObject* parent)
    : QObject(parent)
    , m_zipThread(new ZipThread(this))
{
    connect(m_zipThread.data(), &ZipThread::DecompressProgress, this, &UnZipper::DecompressProgress);
    connect(m_zipThread.data(), &ZipThread::DecompressFinished, this, &UnZipper::DecompressComplete);
}

UnZipper::~UnZipper()
{
    if (m_pUnzipperInstance) {
        m_callback = nullptr;
        WorkerThreads::stopAndDelete(m_zipThread);
    }
    m_pUnzipperInstance = nullptr;
}

void UnZipper::StartUnZip(Morvantix::GameUpdateContext& ctx)
{
    if (!m_zipThread)
        return;
    if (m_zipThread->isRunning()) {
        // Replacing the list under a running job would report its archives against the new one.
        Logger::LogInfo(QStringLiteral("Unzipper"), QStringLiteral("m_ZipThread->isRunning"));
        return;
    }
    m_zipThread->m_fileList.clear();
    m_zipThread->m_fileList.append(ctx.m_unZipFileList);
    m_zipThread->m_bRepair = Morvantix::UpdateType::IsRepair(ctx.m_updateType);
    m_zipThread->m_unZipFolder = ctx.m_unZipFolder;
    m_zipThread->start(QThread::InheritPriority);
}

void UnZipper::RegistCallbackFunc(std::function<void(Morvantix::UnZipCallbackInfo&)> callback)
{
    m_callback = std::move(callback);
}

void UnZipper::DecompressProgress(int percent, int curCount, int totalCount)
{
    m_callbackInfo.bComplete = false;
    m_callbackInfo.percent = percent;
    m_callbackInfo.curCount = curCount;
    m_callbackInfo.totalCount = totalCount;
    if (m_callback)
        m_callback(m_callbackInfo);
}

void UnZipper::DecompressComplete(int code, QString errStr)
{
    Logger::LogInfo(QStringLiteral("Unzipper"), QStringLiteral("error code is %1").arg(code));
    m_callbackInfo.bComplete = true;
    m_callbackInfo.code = SevenZipOutput::MeaningOfExitCode(code, m_callbackInfo.code).code;
    m_callbackInfo.errStr = errStr;
    if (m_callback)
        m_callback(m_callbackInfo);
}

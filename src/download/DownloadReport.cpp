#include "download/DownloadReport.h"

#include "download/SpeedMeter.h"

void DownloadReport::Register(std::function<void(Morvantix::DownloadCallbackInfo&)> callback)
{
    m_callback = std::move(callback);
}

void DownloadReport::Open()
{
    m_bFinished = false;
    m_callbackInfo.speed = 0;
}

bool DownloadReport::EndFailed(Morvantix::ErrorCode code, const QString& text)
{
    if (m_bFinished)
        return false;
    m_bFinished = true;
    m_callbackInfo.errorMsg = text;
    m_callbackInfo.bError = true;
    // The record outlives runs; a failure must not read as the completion of the one before.
    m_callbackInfo.bComplete = false;
    m_callbackInfo.errorCode = code;
    return true;
}

bool DownloadReport::EndComplete(SpeedMeter& meter)
{
    if (m_bFinished)
        return false;
    m_bFinished = true;
    // The last sample may be up to a second old; the completion carries what is on disk now.
    meter.ReportFinal(m_callbackInfo);
    m_callbackInfo.bError = false;
    m_callbackInfo.bComplete = true;
    m_callbackInfo.totalBytes = meter.TotalSize();
    return true;
}

void DownloadReport::Progress(SpeedMeter& meter, qint64 delta)
{
    meter.Report(delta, m_callbackInfo);
    Send();
}

void DownloadReport::Send()
{
    if (m_callback)
        m_callback(m_callbackInfo);
}

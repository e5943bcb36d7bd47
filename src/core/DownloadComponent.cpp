#include "core/DownloadComponent.h"

#include "download/DownloaderManager.h"
#include "log/Logger.h"

namespace Morvantix {

DownloadComponent::DownloadComponent()
    : m_downloader(DownloaderManager::GetInstance())
{ }

DownloadComponent::~DownloadComponent() = default;

void DownloadComponent::RegistCallbackFunc(std::function<void(DownloadCallbackInfo&)> callback)
{
    if (m_downloader)
        m_downloader->RegistCallbackFunc(std::move(callback));
}

void DownloadComponent::StartDownload(GameUpdateContext& ctx)
{
    if (m_downloader)
        m_downloader->StartDownload(ctx);
}

void DownloadComponent::PauseDownload(GameUpdateContext& ctx)
{
    if (m_downloader)
        m_downloader->PauseDownload(ctx);
}

void DownloadComponent::ResumeDownload(GameUpdateContext& ctx)
{
    if (m_downloader)
        m_downloader->ResumeDownload(ctx);
}

void DownloadComponent::GetContentByUrl(QString url, std::function<void(const QString&, int)> callback,
    const QString& postData, bool sync, qint64 maxBytes)
{
    if (m_downloader)
        m_downloader->GetContentByUrl(std::move(url), std::move(callback), postData, sync, maxBytes);
}

void DownloadComponent::GetImageByUrl(QString url, std::function<void(const char*, int)> callback)
{
    if (m_downloader)
        m_downloader->GetImageByUrl(std::move(url), std::move(callback));
}

void DownloadComponent::SetSpeedLimit()
{
    if (m_downloader)
        m_downloader->SetSpeedLimit();
}

void DownloadComponent::ShowMsg()
{
    Logger::LogInfo(QStringLiteral("download"), QStringLiteral("showMsg"));
}

} // namespace Morvantix

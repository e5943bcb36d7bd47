#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "core/ICoreComponent.h"

#include <QPointer>
#include <QString>

#include <functional>

class DownloaderManager;

namespace Morvantix {

// The launcher's handle on the download manager: file downloads and the small content and image
// fetches.
class CORE_EXPORT DownloadComponent : public ICoreComponent
{
public:
    DownloadComponent();
    ~DownloadComponent() override;

    void Setup(EComponentType) override { }
    virtual void RegistCallbackFunc(std::function<void(DownloadCallbackInfo&)> callback);
    virtual void StartDownload(GameUpdateContext& ctx);
    virtual void PauseDownload(GameUpdateContext& ctx);
    virtual void ResumeDownload(GameUpdateContext& ctx);

    void GetContentByUrl(QString url, std::function<void(const QString&, int)> callback,
        const QString& postData, bool sync, qint64 maxBytes = -1);
    void GetImageByUrl(QString url, std::function<void(const char*, int)> callback);
    void SetSpeedLimit();
    void ShowMsg();

private:
    QPointer<DownloaderManager> m_downloader;
};

} // namespace Morvantix

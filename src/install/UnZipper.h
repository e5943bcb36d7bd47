#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"

#include <QObject>
#include <QPointer>

#include <functional>

class ZipThread;

// Unpacks the downloaded packages into the unpack folder and reports progress per archive.
class CORE_EXPORT UnZipper : public QObject
{
    Q_OBJECT
public:
    static UnZipper* GetInstance();
    ~UnZipper() override;

    virtual void StartUnZip(Morvantix::GameUpdateContext& ctx);
    virtual void RegistCallbackFunc(std::function<void(Morvantix::UnZipCallbackInfo&)> callback);

private slots:
    void DecompressProgress(int percent, int curCount, int totalCount);
    void DecompressComplete(int code, QString errStr);

private:
    explicit UnZipper(QObject* parent);

    static UnZipper* m_pUnzipperInstance;
    QPointer<ZipThread> m_zipThread;
    std::function<void(Morvantix::UnZipCallbackInfo&)> m_callback;
    Morvantix::UnZipCallbackInfo m_callbackInfo;
};

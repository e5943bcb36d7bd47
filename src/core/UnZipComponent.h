#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "core/ICoreComponent.h"

#include <QPointer>

#include <functional>

class UnZipper;

namespace Morvantix {

class CORE_EXPORT UnZipComponent : public ICoreComponent
{
public:
    UnZipComponent();
    ~UnZipComponent() override;

    void Setup(EComponentType) override { }
    virtual void StartUnZip(GameUpdateContext& ctx);
    virtual void RegistCallbackFunc(std::function<void(UnZipCallbackInfo&)> callback);
    virtual void StoreValueBeforeClose() { }

private:
    QPointer<UnZipper> m_unZipper;
};

} // namespace Morvantix

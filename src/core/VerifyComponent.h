#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "core/ICoreComponent.h"

#include <QPointer>

#include <functional>

class Verifyer;

namespace Morvantix {

class CORE_EXPORT VerifyComponent : public ICoreComponent
{
public:
    VerifyComponent();
    ~VerifyComponent() override;

    void Setup(EComponentType) override { }
    virtual void StartVerify(GameUpdateContext& ctx);
    virtual void RegistCallbackFunc(std::function<void(VerifyCallbackInfo&)> callback);

private:
    QPointer<Verifyer> m_verifyer;
};

} // namespace Morvantix

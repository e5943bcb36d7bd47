#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "core/ICoreComponent.h"

#include <QPointer>

#include <functional>

class Checker;

namespace Morvantix {

class CORE_EXPORT CheckComponent : public ICoreComponent
{
public:
    CheckComponent();
    ~CheckComponent() override;

    void Setup(EComponentType) override { }
    virtual void StartChecker(GameUpdateContext& ctx);
    virtual void RegistCallbackFunc(std::function<void(CheckCallbackInfo&)> callback);

private:
    QPointer<Checker> m_checker;
};

} // namespace Morvantix

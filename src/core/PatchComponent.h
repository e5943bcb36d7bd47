#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "core/ICoreComponent.h"

#include <QPointer>

#include <functional>

class Patcher;

namespace Morvantix {

// The launcher's handle on the patch stage: merging a patch package into the game, or replacing the
// launcher's own files, as the context's m_bLimitSpeed says.
class CORE_EXPORT PatchComponent : public ICoreComponent
{
public:
    PatchComponent();
    ~PatchComponent() override;

    void Setup(EComponentType) override { }
    virtual void StartApplyPatch(GameUpdateContext& ctx);
    virtual void RegistCallbackFunc(std::function<void(PatcherCallbackInfo&)> callback);

private:
    QPointer<Patcher> m_patcher;
};

} // namespace Morvantix

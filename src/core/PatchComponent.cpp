#include "core/PatchComponent.h"

#include "install/Patcher.h"

namespace Morvantix {

PatchComponent::PatchComponent()
    : m_patcher(Patcher::GetInstance())
{ }

PatchComponent::~PatchComponent() = default;

void PatchComponent::StartApplyPatch(GameUpdateContext& ctx)
{
    if (m_patcher)
        m_patcher->StartApplyPatch(ctx);
}

void PatchComponent::RegistCallbackFunc(std::function<void(PatcherCallbackInfo&)> callback)
{
    if (m_patcher)
        m_patcher->RegistCallbackFunc(std::move(callback));
}

} // namespace Morvantix

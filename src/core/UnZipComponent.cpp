#include "core/UnZipComponent.h"

#include "install/UnZipper.h"

namespace Morvantix {

UnZipComponent::UnZipComponent()
    : m_unZipper(UnZipper::GetInstance())
{ }

UnZipComponent::~UnZipComponent() = default;

void UnZipComponent::StartUnZip(GameUpdateContext& ctx)
{
    if (m_unZipper)
        m_unZipper->StartUnZip(ctx);
}

void UnZipComponent::RegistCallbackFunc(std::function<void(UnZipCallbackInfo&)> callback)
{
    if (m_unZipper)
        m_unZipper->RegistCallbackFunc(std::move(callback));
}

} // namespace Morvantix

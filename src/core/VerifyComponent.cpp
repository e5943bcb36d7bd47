#include "core/VerifyComponent.h"

#include "install/Verifyer.h"

namespace Morvantix {

VerifyComponent::VerifyComponent()
    : m_verifyer(Verifyer::GetInstance())
{ }

VerifyComponent::~VerifyComponent() = default;

void VerifyComponent::StartVerify(GameUpdateContext& ctx)
{
    if (m_verifyer)
        m_verifyer->StartVerify(ctx);
}

void VerifyComponent::RegistCallbackFunc(std::function<void(VerifyCallbackInfo&)> callback)
{
    if (m_verifyer)
        m_verifyer->RegistCallbackFunc(std::move(callback));
}

} // namespace Morvantix

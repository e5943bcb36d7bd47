#include "core/CheckComponent.h"

#include "core/Checker.h"

namespace Morvantix {

CheckComponent::CheckComponent()
    : m_checker(Checker::GetInstance())
{ }

CheckComponent::~CheckComponent() = default;

void CheckComponent::StartChecker(GameUpdateContext& ctx)
{
    if (m_checker)
        m_checker->StartCheck(ctx);
}

void CheckComponent::RegistCallbackFunc(std::function<void(CheckCallbackInfo&)> callback)
{
    if (m_checker)
        m_checker->RegistCallbackFunc(std::move(callback));
}

} // namespace Morvantix

#include "core/ComponentAccessors.h"

#include "core/CheckComponent.h"
#include "core/CoreSystem.h"
#include "core/DownloadComponent.h"
#include "core/PatchComponent.h"
#include "core/SerializeComponent.h"
#include "core/VerifyComponent.h"
#include "core/UnZipComponent.h"

namespace Morvantix {

namespace {

template <typename Component> std::shared_ptr<Component> componentOf(EComponentType type)
{
    return std::dynamic_pointer_cast<Component>(CoreSystem::GetCoreSystemInst()->GetComponent(type));
}

} // namespace

std::shared_ptr<DownloadComponent> GetDownloadComponent()
{
    return componentOf<DownloadComponent>(EComponentType::Download);
}

std::shared_ptr<PatchComponent> GetPatchComponent()
{
    return componentOf<PatchComponent>(EComponentType::Patch);
}

std::shared_ptr<SerializeComponent> GetSerializeComponent()
{
    return componentOf<SerializeComponent>(EComponentType::Serialize);
}

std::shared_ptr<VerifyComponent> GetVerifyComponent()
{
    return componentOf<VerifyComponent>(EComponentType::Verify);
}

std::shared_ptr<CheckComponent> GetCheckComponent()
{
    return componentOf<CheckComponent>(EComponentType::Check);
}

std::shared_ptr<UnZipComponent> GetUnZipComponent()
{
    return componentOf<UnZipComponent>(EComponentType::UnZip);
}

} // namespace Morvantix

#include "core/CoreSystem.h"

#include "core/CheckComponent.h"
#include "core/DownloadComponent.h"
#include "core/PatchComponent.h"
#include "core/SerializeComponent.h"
#include "core/VerifyComponent.h"
#include "core/UnZipComponent.h"

#include <QDebug>

namespace Morvantix {

CoreSystem::CoreSystem()
{
    // Registration order is the construction order of the workers; stages that are not built into
    // this library yet have no entry rather than a placeholder.
    RegistComponent(EComponentType::Download, std::make_shared<DownloadComponent>());
    RegistComponent(EComponentType::UnZip, std::make_shared<UnZipComponent>());
    RegistComponent(EComponentType::Patch, std::make_shared<PatchComponent>());
    RegistComponent(EComponentType::Serialize, std::make_shared<SerializeComponent>());
    RegistComponent(EComponentType::Verify, std::make_shared<VerifyComponent>());
    RegistComponent(EComponentType::Check, std::make_shared<CheckComponent>());
    m_curContext = std::make_shared<GameUpdateContext>();
}

CoreSystem::~CoreSystem()
{
    qDebug() << "CoreSystem Desctructor";
}

std::shared_ptr<CoreSystem> CoreSystem::GetCoreSystemInst()
{
    static std::shared_ptr<CoreSystem> CoreSysIns = std::make_shared<CoreSystem>();
    return CoreSysIns;
}

void CoreSystem::RegistComponent(EComponentType type, std::shared_ptr<ICoreComponent> component)
{
    m_componentMap.insert({ type, std::move(component) });
}

std::shared_ptr<ICoreComponent> CoreSystem::GetComponent(EComponentType type)
{
    const auto it = m_componentMap.find(type);
    return it == m_componentMap.end() ? nullptr : it->second;
}

std::shared_ptr<GameUpdateContext> CoreSystem::GetCurGameUpdateContext()
{
    return m_curContext;
}

std::shared_ptr<CoreSystem> GetCoreSystemInstance()
{
    return CoreSystem::GetCoreSystemInst();
}

} // namespace Morvantix

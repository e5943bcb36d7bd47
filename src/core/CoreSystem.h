#pragma once

#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "core/ICoreComponent.h"
#include "core/ICoreSystem.h"

#include <map>
#include <memory>

namespace Morvantix {

// The process-wide entry point: the registry of components and the one job context.
class CORE_EXPORT CoreSystem : public ICoreSystem
{
public:
    CoreSystem();
    CoreSystem(const CoreSystem&) = default;
    CoreSystem& operator=(const CoreSystem&) = default;
    ~CoreSystem();

    static std::shared_ptr<CoreSystem> GetCoreSystemInst();

    // The first registration of a type wins; later ones are dropped.
    void RegistComponent(EComponentType type, std::shared_ptr<ICoreComponent> component) override;
    std::shared_ptr<ICoreComponent> GetComponent(EComponentType type) override;

    // Never replaced: every caller shares and mutates the same context.
    std::shared_ptr<GameUpdateContext> GetCurGameUpdateContext();

private:
    std::map<EComponentType, std::shared_ptr<ICoreComponent>> m_componentMap;
    std::shared_ptr<GameUpdateContext> m_curContext;
};

CORE_EXPORT std::shared_ptr<CoreSystem> GetCoreSystemInstance();

} // namespace Morvantix

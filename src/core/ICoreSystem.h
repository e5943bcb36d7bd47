#pragma once

#include "core/ComponentType.h"
#include "core/CoreExport.h"

#include <memory>

namespace Morvantix {

class ICoreComponent;

class CORE_EXPORT ICoreSystem
{
public:
    ICoreSystem() = default;
    ICoreSystem(const ICoreSystem&) = default;
    ICoreSystem(ICoreSystem&&) = default;
    ICoreSystem& operator=(const ICoreSystem&) = default;
    ICoreSystem& operator=(ICoreSystem&&) = default;

    virtual void RegistComponent(EComponentType type, std::shared_ptr<ICoreComponent> component) = 0;
    virtual std::shared_ptr<ICoreComponent> GetComponent(EComponentType type) = 0;

protected:
    // Never deleted through the interface: the one system object is owned by a shared pointer of
    // its own class.
    ~ICoreSystem() = default;
};

} // namespace Morvantix

#pragma once

#include "core/ComponentType.h"
#include "core/CoreExport.h"

namespace Morvantix {

// A facade the launcher reaches through the registry. Each one forwards to a worker singleton that
// outlives it; a facade never deletes its worker.
class CORE_EXPORT ICoreComponent
{
public:
    virtual void Setup(EComponentType type) = 0;
    virtual ~ICoreComponent() = default;
};

} // namespace Morvantix

#pragma once

namespace Morvantix {

// Registry keys of the core system. The gaps (0, 1, 4, 5, 7) are never registered.
enum EComponentType : int
{
    Download = 2,
    Patch = 3,
    Serialize = 6,
    UnZip = 8,
    Verify = 9,
    Check = 10,
};

} // namespace Morvantix

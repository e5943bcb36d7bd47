#pragma once

namespace Morvantix {

// The four dot-separated numbers of a version text such as "0.0.0.1". Comparisons never look at the
// fields directly: they go through the packed ordering key (planning/VersionUtil.h).
struct Version
{
    int major = 0;
    int minor = 0;
    int patch = 0;
    int build = 0;
};

} // namespace Morvantix

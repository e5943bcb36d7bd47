#pragma once

#include "core/CoreExport.h"
#include "core/Version.h"

#include <QString>
#include <QtGlobal>

namespace Morvantix {

// Reads the four dot-separated numbers of a version text; a missing or unreadable part reads as 0.
CORE_EXPORT void GetVersionByString(const QString& text, Version& out);

// The text form of a version, "major.minor.patch.build". Every version shown in a log line or
// compared as text goes through here, so all of them look alike.
CORE_EXPORT QString VersionToString(const Version& version);

// The one key every version comparison uses. The parts are OR-ed into place, not added: a minor of
// 256 or more spills into the major bits and a negative part sets every bit above it. Servers and
// saved settings have always been compared this way, so the packing must not be "fixed".
CORE_EXPORT quint64 VersionOrderKey(const Version& version);

inline bool operator==(const Version& a, const Version& b)
{
    return VersionOrderKey(a) == VersionOrderKey(b);
}

inline bool operator!=(const Version& a, const Version& b)
{
    return !(a == b);
}

inline bool operator<(const Version& a, const Version& b)
{
    return VersionOrderKey(a) < VersionOrderKey(b);
}

} // namespace Morvantix

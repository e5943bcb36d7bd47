#pragma once

#include "core/CoreExport.h"
#include "planning/GuideManifestInfo.h"

#include <QString>

namespace Morvantix {

// Parses the text of the guide manifest. Lines that do not look right still become packages with
// empty or zero fields: the reader never rejects a text.
CORE_EXPORT GuideManifestInfo ReadGuideManifest(const QString& text);

// The text ReadGuideManifest reads back into the same record: every file of every package, then the
// newest version. A package without files has no line to stand on and is left out.
CORE_EXPORT QString WriteGuideManifest(const GuideManifestInfo& info);

} // namespace Morvantix

#pragma once

#include "core/CoreExport.h"
#include "core/DownloadFileInfo.h"
#include "core/VersionManifest.h"
#include "planning/GuideManifestInfo.h"

#include <QString>

namespace Morvantix {

// A file of the guide manifest as a plan entry: fetched from the channel's host, saved under the
// last section of its server path.
CORE_EXPORT PackFileInfo ToPackFileInfo(const PatchFileInfo& file);

// A plan entry as the download manager wants it: stored in the cache folder under its file name.
CORE_EXPORT DownloadFileInfo ToDownloadFileInfo(const PackFileInfo& file, const QString& cachePath);

} // namespace Morvantix

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

// True when every file of entry can be stored in the cache folder: its server path is a safe relative
// path and the part after its last "/" a plain name. The download manager stores each file directly in
// the cache folder and clears that folder on a fresh start, so a name such as "dir/", "dir/.." or
// "..\..\x.bin" would make the cache folder itself, or a place outside it, the target of both. False,
// too, while the cache path is empty (the settings not read yet). Refusals are logged.
CORE_EXPORT bool IsStorablePackage(const PatchEntry& entry, const QString& cachePath);

// A plan entry as the download manager wants it: stored in the cache folder under its file name.
CORE_EXPORT DownloadFileInfo ToDownloadFileInfo(const PackFileInfo& file, const QString& cachePath);

} // namespace Morvantix

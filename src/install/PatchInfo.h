#pragma once

#include "core/CoreExport.h"
#include "install/ManifestFileInfo.h"

#include <QString>

namespace Morvantix {

// What an unpacked patch package does to the installed game.
struct PatchInfo
{
    ManifestFileMap newFiles; // added or replaced whole
    ManifestFileMap delFiles; // deleted from the game folder
    ManifestFileMap patchFiles; // rebuilt from the diff of the same name in the package
};

// Reads the text of a patch info file; no file access. Lines before the first section marker are
// dropped, and a path that is both deleted and added (letter case ignored) is kept and replaced.
CORE_EXPORT PatchInfo ReadPatchInfo(const QString& text);

// The text ReadPatchInfo reads back into the same three lists.
CORE_EXPORT QString WritePatchInfo(const PatchInfo& info);

} // namespace Morvantix

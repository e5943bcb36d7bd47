#pragma once

#include "core/CoreExport.h"

#include <memory>

namespace Morvantix {

class CheckComponent;
class DownloadComponent;
class PatchComponent;
class SerializeComponent;
class VerifyComponent;
class UnZipComponent;

// Typed shortcuts into the registry. A missing component, or one of another class, gives an empty
// pointer.
CORE_EXPORT std::shared_ptr<DownloadComponent> GetDownloadComponent();
CORE_EXPORT std::shared_ptr<PatchComponent> GetPatchComponent();
CORE_EXPORT std::shared_ptr<SerializeComponent> GetSerializeComponent();
CORE_EXPORT std::shared_ptr<VerifyComponent> GetVerifyComponent();
CORE_EXPORT std::shared_ptr<CheckComponent> GetCheckComponent();
CORE_EXPORT std::shared_ptr<UnZipComponent> GetUnZipComponent();

} // namespace Morvantix

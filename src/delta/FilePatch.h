#pragma once

#include "DeltaStatus.h"

#include <cstddef>
#include <string>

namespace Delta {

struct ApplyRequest
{
    std::string oldPath;
    std::string diffPath;
    std::string outPath; // may be oldPath: the file is then patched in place
    std::size_t cacheSize = std::size_t(1) << 20;
    bool overwrite = false; // out may exist already
};

// Applies a diff file to a file. The new file is written beside out under a temporary name, put on
// disk and only then renamed over out, so out is either untouched or complete: an old file that is
// not the diff's, a damaged or truncated diff, or a full disk leave it as it was.
Result ApplyDiffFile(const ApplyRequest& request);

} // namespace Delta

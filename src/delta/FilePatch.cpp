#include "FilePatch.h"

#include "ByteFile.h"
#include "Decoder.h"

#include <cerrno>

namespace Delta {

namespace {

Result decodeInto(const ApplyRequest& request, const std::string& temporary)
{
    Decoder decoder(request.cacheSize);
    Result result = decoder.check(request.oldPath, request.diffPath);
    if (!result.ok())
        return result;
    ByteFile out;
    result = out.open(temporary, ByteFile::Mode::WriteUnnamed);
    if (result.ok())
        result = decoder.decode(out);
    if (result.ok())
        result = out.sync();
    if (result.ok())
        result = out.nameIt();
    return result;
}

} // namespace

Result ApplyDiffFile(const ApplyRequest& request)
{
    bool isFolder = false;
    if (!Files::Exists(request.oldPath, &isFolder))
        return Result::Failure(Status::ReadFailed, "cannot read old file " + request.oldPath);
    if (isFolder)
        return Result::Failure(Status::ReadFailed, "folder diffs are not supported: " + request.oldPath);
    const bool outExists = Files::Exists(request.outPath);
    if (outExists && !request.overwrite)
        return Result::Failure(Status::WriteFailed, request.outPath + " exists; -f overwrites it");

    const std::string temporary = Files::TemporaryNameBeside(request.outPath);
    Result result = decodeInto(request, temporary);
    if (result.ok()) {
        // A file patched in place keeps its permissions; a new one gets those of the old file.
        Files::CopyMode(outExists ? request.outPath : request.oldPath, temporary);
        if (!Files::Replace(temporary, request.outPath))
            result = ByteFile::ErrnoFailure(
                "cannot rename the new file to " + request.outPath, errno, Status::WriteFailed);
    }
    if (!result.ok())
        Files::Remove(temporary);
    return result;
}

} // namespace Delta

#pragma once

#include <string>

namespace Delta {

// How an encode or an apply ended. Each front end maps these to its own exit codes once.
enum class Status
{
    Done,
    OldMismatch, // the old file is not the one the diff was made from
    CorruptDiff, // the diff is damaged, truncated or no diff at all
    UnknownVersion, // a diff of a later format
    ReadFailed,
    WriteFailed,
    DiskFull,
    OutOfMemory,
};

// A status and, when it is not Done, what happened to which file.
struct Result
{
    Status status = Status::Done;
    std::string message;

    bool ok() const { return status == Status::Done; }
    static Result Failure(Status status, const std::string& message) { return { status, message }; }
};

} // namespace Delta

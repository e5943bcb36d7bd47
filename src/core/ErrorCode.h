#pragma once

namespace Morvantix {

// Result codes of the download path and of the planning solvers. Values other than these travel
// unchanged (a network error value, for instance) and are reported with the generic message.
enum ErrorCode : int
{
    NoError = 0,
    FileFinished = 1,
    NetworkFailed = 2,
    StallTimeout = 3,
    ContentTimeout = 4,
    WriteFailed = 5,
};

} // namespace Morvantix

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
    // A content fetch passed its size cap and was stopped; above every network error value, which
    // travel in the same field.
    ContentTooLarge = 1001,
};

} // namespace Morvantix

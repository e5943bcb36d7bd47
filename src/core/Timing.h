#pragma once

#include "core/CoreExport.h"

namespace Morvantix {
namespace Timing {

// The timed constants of the product. They keep their values in every build; the test suite may
// scale all of them down through the one hook below so that a stall or a tool wait does not take
// minutes of test time.
CORE_EXPORT int stallTimeoutMs(); // a transfer that moves nothing for this long fails: 20 s
CORE_EXPORT int restartDelayMs(); // pause before the transfers restart after a failure: 2 s
CORE_EXPORT int fetchAttemptMs(); // one attempt of a content fetch: 5 s
CORE_EXPORT int fetchRetryPauseMs(); // pause between content-fetch attempts: 1 s
CORE_EXPORT int toolWaitMs(); // the longest wait for an external tool: 30 min
CORE_EXPORT int processEndWaitMs(); // the longest wait for an ended process to be gone: 5 s

// Divides every constant above by `divisor` (1 restores the product values). Test-only.
CORE_EXPORT void setTimeDivisorForTesting(int divisor);

} // namespace Timing
} // namespace Morvantix

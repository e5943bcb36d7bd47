#include "core/Timing.h"

#include <QtGlobal>

namespace Morvantix {
namespace Timing {

namespace {
int s_divisor = 1;

int scaled(int ms)
{
    return qMax(1, ms / s_divisor);
}
} // namespace

int stallTimeoutMs()
{
    return scaled(20000);
}

int restartDelayMs()
{
    return scaled(2000);
}

int fetchAttemptMs()
{
    return scaled(5000);
}

int fetchRetryPauseMs()
{
    return scaled(1000);
}

int toolWaitMs()
{
    return scaled(30 * 60 * 1000);
}

int processEndWaitMs()
{
    return scaled(5000);
}

void setTimeDivisorForTesting(int divisor)
{
    s_divisor = qMax(1, divisor);
}

} // namespace Timing
} // namespace Morvantix

#pragma once

#include "core/Timing.h"

// Shortens every timed constant of the product for one test body and restores them afterwards.
class ScopedTimeDivisor
{
public:
    explicit ScopedTimeDivisor(int divisor) { Morvantix::Timing::setTimeDivisorForTesting(divisor); }
    ~ScopedTimeDivisor() { Morvantix::Timing::setTimeDivisorForTesting(1); }
    ScopedTimeDivisor(const ScopedTimeDivisor&) = delete;
    ScopedTimeDivisor& operator=(const ScopedTimeDivisor&) = delete;
};

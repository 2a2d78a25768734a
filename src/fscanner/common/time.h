#pragma once

#include <sys/time.h>

#include <ctime>

namespace fscanner {

/// Milliseconds since the epoch, cut to 32 bits: it wraps.
unsigned getTickCount();
/// Milliseconds from `start` to `end`; each end's microseconds are cut first.
long elapsedTime(timeval start, timeval end);
/// Seconds since the epoch.
std::time_t getCurrentTime();

}  // namespace fscanner

#pragma once

#include <sys/time.h>

#include <ctime>

namespace fscanner {

/// Milliseconds since the epoch, cut to 32 bits: it wraps.
unsigned getTickCount();
/// The same by a clock that costs little to ask and goes in steps of some milliseconds.
/// Its ticks are to be compared with each other alone.
unsigned getCoarseTickCount();
/// Milliseconds from `start` to `end`; each end's microseconds are cut first.
long elapsedTime(timeval start, timeval end);
/// Seconds since the epoch.
std::time_t getCurrentTime();

/// Replaces the system's clock under the ticks and `getCurrentTime`, so that a
/// test decides what time it is; null restores it. Process-wide.
using ClockSource = timeval (*)();
void setClockSource(ClockSource source);

}  // namespace fscanner

#pragma once

#include <sys/time.h>

#include <ctime>

namespace fscanner {

/// Milliseconds since the epoch, cut to 32 bits: it wraps. Counted by a clock that nobody
/// sets: a step of the system's clock moves neither the ticks nor what is measured by them.
/// Only the first tick of the process is read from the system's clock.
unsigned getTickCount();
/// The same by a clock that costs little to ask and goes in steps of some milliseconds.
/// Its ticks are to be compared with each other alone.
unsigned getCoarseTickCount();
/// Milliseconds from `start` to `end`; each end's microseconds are cut first.
long elapsedTime(timeval start, timeval end);
/// Seconds since the epoch, by the system's clock.
std::time_t getCurrentTime();

/// Replaces the system's clock under `getCurrentTime`, so that a test decides what time
/// it is, and with it the clock under the ticks, unless `ticks` replaces that; null
/// restores both. Process-wide.
using ClockSource = timeval (*)();
void setClockSource(ClockSource source, ClockSource ticks = nullptr);

}  // namespace fscanner

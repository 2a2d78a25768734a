#pragma once

#include <sys/time.h>

#include <cstdint>
#include <ctime>

namespace fscanner {

/// Milliseconds since the epoch, cut to 32 bits: the count wraps every 49.7 days. The first
/// call takes the system's time; from then on a monotonic clock counts, so a step of the
/// system's clock does not change measured times.
unsigned getTickCount();
/// The same from a clock that is cheaper to read and advances in steps of some milliseconds.
/// Compare its ticks only with each other.
unsigned getCoarseTickCount();
/// Nanoseconds since the epoch from the clock that the kernel gives files their times by. It
/// advances in steps of some milliseconds. What is changed later never gets an earlier time, unless
/// somebody sets the clock back.
std::uint64_t getFileClock();
/// Seconds since the epoch, by the system's clock.
std::time_t getCurrentTime();

/// For tests: replaces the clock that `getCurrentTime` and `getFileClock` read by `source`, and the
/// clock of the ticks by `ticks` (by `source` too if `ticks` is null). A null `source` restores the
/// system's clock. Process-wide.
using ClockSource = timeval (*)();
void setClockSource(ClockSource source, ClockSource ticks = nullptr);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Milliseconds from `start` to `end`. When the two are in different seconds, the microseconds
/// of each are cut to milliseconds before the subtraction.
long elapsedTime(timeval start, timeval end);

}  // namespace fscanner

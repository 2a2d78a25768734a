#include "fscanner/common/time.h"

namespace fscanner {

namespace {

constexpr long kNanosecondsPerMillisecond = 1'000'000;

long long millisecondsOf(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / kNanosecondsPerMillisecond;
}

// The ticks start at the time of day and are counted by the monotonic clock. They were the time of
// day once: a step of the clock ended scans early or let them run past their limit.
unsigned steadyTicks(clockid_t clock) {
    static const long long start = millisecondsOf(CLOCK_REALTIME) - millisecondsOf(CLOCK_MONOTONIC);
    return static_cast<unsigned>(start + millisecondsOf(clock));
}

unsigned milliseconds(const timeval& time) {
    return static_cast<unsigned>(time.tv_sec * 1000LL + time.tv_usec / 1000);
}

// Null stands for the system's clocks.
ClockSource wallClock = nullptr;
ClockSource tickClock = nullptr;

}  // namespace

void setClockSource(ClockSource source, ClockSource ticks) {
    wallClock = source;
    tickClock = ticks != nullptr ? ticks : source;
}

unsigned getTickCount() {
    return tickClock != nullptr ? milliseconds(tickClock()) : steadyTicks(CLOCK_MONOTONIC);
}

unsigned getCoarseTickCount() {
    return tickClock != nullptr ? milliseconds(tickClock()) : steadyTicks(CLOCK_MONOTONIC_COARSE);
}

std::uint64_t getFileClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    if (wallClock != nullptr) {
        const timeval set = wallClock();
        now = {set.tv_sec, set.tv_usec * 1000};
    }
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
           static_cast<std::uint64_t>(now.tv_nsec);
}

std::time_t getCurrentTime() {
    return wallClock != nullptr ? wallClock().tv_sec : std::time(nullptr);
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

long elapsedTime(timeval start, timeval end) {
    if (start.tv_sec == end.tv_sec) return (end.tv_usec - start.tv_usec) / 1000;
    return (end.tv_sec - start.tv_sec) * 1000 - start.tv_usec / 1000 + end.tv_usec / 1000;
}

}  // namespace fscanner

#include "fscanner/common/time.h"

namespace fscanner {

namespace {

timeval systemClock() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now;
}

timeval coarseClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return {now.tv_sec, now.tv_nsec / 1000};
}

unsigned milliseconds(const timeval& time) {
    return static_cast<unsigned>(time.tv_sec * 1000LL + time.tv_usec / 1000);
}

ClockSource clockSource = systemClock;

}  // namespace

void setClockSource(ClockSource source) {
    clockSource = source != nullptr ? source : systemClock;
}

unsigned getTickCount() {
    return milliseconds(clockSource());
}

unsigned getCoarseTickCount() {
    return milliseconds(clockSource == systemClock ? coarseClock() : clockSource());
}

long elapsedTime(timeval start, timeval end) {
    if (start.tv_sec == end.tv_sec) return (end.tv_usec - start.tv_usec) / 1000;
    return (end.tv_sec - start.tv_sec) * 1000 - start.tv_usec / 1000 + end.tv_usec / 1000;
}

std::time_t getCurrentTime() {
    return clockSource().tv_sec;
}

}  // namespace fscanner

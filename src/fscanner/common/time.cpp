#include "fscanner/common/time.h"

namespace fscanner {

namespace {

timeval systemClock() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now;
}

ClockSource clockSource = systemClock;

}  // namespace

void setClockSource(ClockSource source) {
    clockSource = source != nullptr ? source : systemClock;
}

unsigned getTickCount() {
    const timeval now = clockSource();
    return static_cast<unsigned>(now.tv_sec * 1000LL + now.tv_usec / 1000);
}

long elapsedTime(timeval start, timeval end) {
    if (start.tv_sec == end.tv_sec) return (end.tv_usec - start.tv_usec) / 1000;
    return (end.tv_sec - start.tv_sec) * 1000 - start.tv_usec / 1000 + end.tv_usec / 1000;
}

std::time_t getCurrentTime() {
    return clockSource().tv_sec;
}

}  // namespace fscanner

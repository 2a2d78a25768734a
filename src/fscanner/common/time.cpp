#include "fscanner/common/time.h"

namespace fscanner {

unsigned getTickCount() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<unsigned>(now.tv_sec * 1000LL + now.tv_usec / 1000);
}

long elapsedTime(timeval start, timeval end) {
    if (start.tv_sec == end.tv_sec) return (end.tv_usec - start.tv_usec) / 1000;
    return (end.tv_sec - start.tv_sec) * 1000 - start.tv_usec / 1000 + end.tv_usec / 1000;
}

std::time_t getCurrentTime() {
    return std::time(nullptr);
}

}  // namespace fscanner

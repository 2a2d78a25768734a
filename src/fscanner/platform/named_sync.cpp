#include "fscanner/platform/named_sync.h"

namespace fscanner {

timespec syncDeadline(timeval now, long milliseconds) {
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + milliseconds / 1000;
    long rest = now.tv_usec + milliseconds % 1000;
    if (rest > 999) {
        ++deadline.tv_sec;
        rest -= 1000;
    }
    deadline.tv_nsec = rest * 1000;
    return deadline;
}

timespec syncDeadline(long milliseconds) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return syncDeadline(now, milliseconds);
}

}  // namespace fscanner

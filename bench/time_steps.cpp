// How far apart the times of changes in a directory lie, and how old a directory's time must be
// when it is read so that no later change can leave it as it is:
//
//     time_steps DIRECTORY...
//
// For each DIRECTORY, which should be on a file system of its own, a line of numbers: changes that
// were made, those that left the ctime as it was, the oldest ctime among those when the directory
// was examined, by the clock of files, and how far the ctime stayed behind the time of day.
// `engine/stamp_trust` rests on them.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>

namespace {

constexpr long long kMillisecond = 1'000'000;
constexpr long long kDuration = 5000 * kMillisecond;
constexpr unsigned kNames = 50;

long long nanoseconds(const timespec& time) {
    return time.tv_sec * 1000 * kMillisecond + time.tv_nsec;
}

long long now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return nanoseconds(time);
}

long long changed(int directory) {
    struct stat info {};
    fstat(directory, &info);
    return nanoseconds(info.st_ctim);
}

// Makes so many files and removes them, again and again.
void change(int directory, unsigned step) {
    const std::string name = "time_steps_" + std::to_string(step % kNames);
    if (step / kNames % 2 == 0)
        close(openat(directory, name.c_str(), O_CREAT | O_WRONLY, 0600));
    else
        unlinkat(directory, name.c_str(), 0);
}

void measure(const char* path) {
    const int directory = open(path, O_RDONLY | O_DIRECTORY);
    struct statfs system {};
    if (directory < 0 || fstatfs(directory, &system) != 0) {
        std::perror(path);
        return;
    }
    unsigned step = 0, unseen = 0;
    long long oldest = 0, behind = 0;
    const long long end = now(CLOCK_MONOTONIC) + kDuration;
    while (now(CLOCK_MONOTONIC) < end || step % (2 * kNames) != 0) {
        const long long read = now(CLOCK_REALTIME_COARSE), before = changed(directory);
        change(directory, step);
        const long long after = changed(directory);
        behind = std::max(behind, now(CLOCK_REALTIME) - after);
        if (after == before) {
            ++unseen;
            oldest = std::max(oldest, read - before);
        }
        // So that changes fall anywhere between two ticks.
        if (++step % 100 == 0) usleep(step % 3000);
    }
    std::printf("%-24s type %08lX  changes %7u  unseen %7u  oldest %10lld ns  behind %10lld ns\n",
                path, static_cast<unsigned long>(system.f_type), step, unseen, oldest, behind);
    close(directory);
}

}  // namespace

int main(int argc, char** argv) {
    timespec tick{};
    clock_getres(CLOCK_REALTIME_COARSE, &tick);
    std::printf("the clock of files goes in steps of %lld ns\n", nanoseconds(tick));
    for (int i = 1; i < argc; ++i) measure(argv[i]);
}

// Runs one command and measures its cost:
//
//     measure [-p] RESULT COMMAND...
//
// Writes one line of five numbers to the file RESULT: the exit status, the elapsed time and the CPU
// time in microseconds, the peak of resident memory in KiB, and with -p the peak of private
// memory in KiB (otherwise 0). Private memory does not count the pages of files. It is sampled
// every millisecond, which disturbs the times.
//
// This program is small for a reason: the peak of resident memory of a child includes the memory
// of its parent at the time of the fork.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr long kInterval = 1'000'000;  // ns between two samples

long long microseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000LL + now.tv_nsec / 1000;
}

long long microseconds(const timeval& time) {
    return time.tv_sec * 1'000'000LL + time.tv_usec;
}

/// The private memory now, in KiB, from the file /proc/PID/status; 0 once the process is gone.
long privateMemory(int status) {
    char text[4096];
    const ssize_t size = pread(status, text, sizeof text - 1, 0);
    if (size <= 0) return 0;
    text[size] = '\0';
    const char* line = std::strstr(text, "RssAnon:");
    return line ? std::atol(line + std::strlen("RssAnon:")) : 0;
}

long watch(pid_t child) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/status", static_cast<int>(child));
    const int status = open(path, O_RDONLY | O_CLOEXEC);
    long most = 0;
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
           info.si_pid == 0) {
        most = std::max(most, privateMemory(status));
        const timespec pause{0, kInterval};
        nanosleep(&pause, nullptr);
    }
    close(status);
    return most;
}

int run(const char* result, char** command, bool watched) {
    const long long start = microseconds();
    const pid_t child = vfork();
    if (child < 0) return 125;
    if (child == 0) {
        execvp(command[0], command);
        _exit(127);
    }
    const long most = watched ? watch(child) : 0;
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child) return 125;
    const long long elapsed = microseconds() - start;
    std::FILE* out = std::fopen(result, "w");
    if (!out) return 125;
    std::fprintf(out, "%d %lld %lld %ld %ld\n", WIFEXITED(status) ? WEXITSTATUS(status) : 128,
                 elapsed, microseconds(usage.ru_utime) + microseconds(usage.ru_stime),
                 usage.ru_maxrss, most);
    return std::fclose(out) == 0 ? 0 : 125;
}

}  // namespace

int main(int argc, char** argv) {
    const bool watched = argc > 1 && std::strcmp(argv[1], "-p") == 0;
    argv += watched ? 2 : 1;
    if (argc < (watched ? 4 : 3)) {
        std::fprintf(stderr, "usage: measure [-p] RESULT COMMAND...\n");
        return 2;
    }
    return run(argv[0], argv + 1, watched);
}

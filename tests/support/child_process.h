#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fscanner {

/// Runs `body` in a forked process, where it may change things that a process can change only
/// once, and returns its result (0 to 255), or -1 when a signal ended it.
template <typename Body>
int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline constexpr uid_t kNobody = 65534;

/// Drops the rights of root in this process for good.
inline bool becomeNobody() {
    return ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0;
}

/// A limit on the length of files stands for a full disk: writes fail behind it from now on.
inline bool limitFileSize(rlim_t bytes) {
    const rlimit limit{bytes, bytes};
    return ::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

}  // namespace fscanner

#pragma once

#include <sys/wait.h>
#include <unistd.h>

namespace fscanner {

/// Runs `body` in a forked process, where it may change what a process has only
/// once, and returns its result (0 to 255), or -1 when a signal ended it.
template <typename Body>
int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace fscanner

#pragma once

#include <sys/types.h>

#include <array>
#include <functional>
#include <string>
#include <string_view>

namespace fscanner {

/// One system call that a traced process is about to make.
struct TracedCall {
    pid_t process = 0;
    unsigned long long number = 0;
    std::array<unsigned long long, 6> arguments{};

    /// The call's group, such as "open" or "fsync"; empty if it is in none.
    std::string_view group() const;
    /// The path in an argument, or of the file behind a descriptor.
    std::string path(unsigned argument) const;
    std::string descriptorPath(unsigned argument) const;
};

/// Runs a body in a forked process and decides on each of its system calls.
class Tracer {
public:
    /// Decides on a call: 0 lets it pass, a positive number is the error that it
    /// fails with instead of being made, `kKill` kills the process before it, and
    /// `signalNow(s)` lets it pass with a signal.
    static constexpr int kKill = -1000;
    static constexpr int signalNow(int signal) { return -signal; }
    using Judge = std::function<int(const TracedCall&)>;
    using Body = std::function<int()>;

    /// False where tracing is not permitted, or not known for this processor.
    static bool available();

    /// The exit status of the body, or the negative signal that ended it.
    int run(const Body& body, const Judge& judge);

    unsigned countCalls(const Body& body);
    int killAt(unsigned call, const Body& body);
};

}  // namespace fscanner

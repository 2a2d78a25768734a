#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// A program that runs without a shell and whose standard output is read.
///
/// It inherits nothing of the host but its identity, its umask and limits: its
/// descriptors are the pipe, an empty standard input and a standard error that
/// goes nowhere; no signal is blocked or ignored; the environment is the C
/// locale, a plain PATH and the host's time zone.
class ChildProcess {
public:
    /// Starts the program `arguments[0]`, an absolute path, in the directory open
    /// as `directory` (AT_FDCWD: where the host is).
    static std::optional<ChildProcess> start(const std::vector<std::string>& arguments,
                                             int directory);
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess& operator=(ChildProcess&&) = delete;
    /// Kills the program if it still runs, and leaves no zombie.
    ~ChildProcess();

    using Clock = std::chrono::steady_clock;
    enum class ReadEnd { endOfOutput, stopped, timedOut, failed };
    /// Hands the output out piece by piece until it ends, `sink` answers false
    /// ("stopped") or the deadline has passed.
    ReadEnd read(Clock::time_point deadline, const std::function<bool(std::string_view)>& sink);

private:
    ChildProcess(pid_t pid, int output) : pid_(pid), output_(output) {}

    pid_t pid_;
    int output_;
};

}  // namespace fscanner

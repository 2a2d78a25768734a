#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// A program that runs without a shell and whose standard output is read.
///
/// It inherits nothing of the host but its identity, its umask and limits: its
/// descriptors are one end of a socket, an empty standard input (unless it is to be
/// asked) and a standard error that goes nowhere; no signal is blocked or ignored; the environment
/// is the C locale, a plain PATH and the host's time zone.
class ChildProcess {
public:
    enum class Input { none, asked };
    /// Starts the program `arguments[0]`, an absolute path, in the directory open
    /// as `directory` (AT_FDCWD: where the host is). One that is `asked` reads what
    /// `exchange` sends.
    static std::optional<ChildProcess> start(const std::vector<std::string>& arguments,
                                             int directory, Input input = Input::none);
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess& operator=(ChildProcess&&) = delete;
    /// Kills the program if it still runs, and leaves no zombie, unless it does not end
    /// within a second even so: it is the host's to reap then.
    ~ChildProcess();

    using Clock = std::chrono::steady_clock;
    enum class ReadEnd { endOfOutput, stopped, timedOut, failed };
    using Sink = std::function<bool(std::string_view)>;
    /// Hands the output out piece by piece until it ends, `sink` answers false
    /// ("stopped") or the deadline has passed.
    ReadEnd read(Clock::time_point deadline, const Sink& sink) {
        return exchange({}, deadline, sink);
    }
    /// The same while `question` is sent. What the program does not take is dropped.
    ReadEnd exchange(std::string_view question, Clock::time_point deadline, const Sink& sink);

private:
    ChildProcess(pid_t pid, Descriptor socket) : pid_(pid), socket_(std::move(socket)) {}

    pid_t pid_;
    Descriptor socket_;
};

}  // namespace fscanner

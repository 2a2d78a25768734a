#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// A program that is started without a shell, and whose standard output is read.
///
/// From the host it inherits its user and groups, its umask and its resource limits, and
/// nothing else. Standard output is one end of a socket, standard error is /dev/null, and
/// standard input is /dev/null or the same socket; all other descriptors are closed. No signal
/// is blocked or ignored. The environment holds the C locale, a plain PATH and the host's time
/// zone.
class ChildProcess {
public:
    enum class Input { none, asked };
    /// Starts the program `arguments[0]`, an absolute path, in the directory open
    /// as `directory` (AT_FDCWD: the host's current directory). With `Input::asked`
    /// its standard input is the text that `exchange` sends. Empty on failure.
    static std::optional<ChildProcess> start(const std::vector<std::string>& arguments,
                                             int directory, Input input = Input::none);
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess& operator=(ChildProcess&&) = delete;
    /// Kills the program if it still runs, and reaps it. A program that has not ended one
    /// second later stays a child of the host, which has to reap it.
    ~ChildProcess();

    using Clock = std::chrono::steady_clock;
    enum class ReadEnd { endOfOutput, stopped, timedOut, failed };
    using Sink = std::function<bool(std::string_view)>;
    /// Passes the output to `sink` piece by piece until it ends, `sink` returns false
    /// (`stopped`), or the deadline has passed.
    ReadEnd read(Clock::time_point deadline, const Sink& sink) {
        return exchange({}, deadline, sink);
    }
    /// The same, and sends `question` to the program meanwhile. A rest that the program does
    /// not read is dropped.
    ReadEnd exchange(std::string_view question, Clock::time_point deadline, const Sink& sink);

private:
    ChildProcess(pid_t pid, Descriptor socket) : pid_(pid), socket_(std::move(socket)) {}

    pid_t pid_;
    Descriptor socket_;
};

/// The result of one request for descriptions.
struct FileRun {
    std::vector<std::string> descriptions;  // of the first files; of all after a success
    bool mayContinue = false;  // the program ended at the next file; a new run may skip that
};

/// A `file` process that is kept running and gets the names of one directory after another.
/// This saves a start of the program (about 2 ms) per directory.
///
/// The process reaches the files through our descriptor of their directory, by a path under
/// /proc. So nobody can exchange the directory, as if `file` were started in it. When the first
/// attempt to keep a process fails, there is no other. The process ends with this object. After a
/// fork of the host, parent and child each start a process of their own; so does a host that
/// changes its user or group.
class RunningFile {
public:
    /// Describes the files `names` of the directory open as `directory`. Empty when the
    /// caller must describe them by a run of their own: a name has a newline, no process can
    /// be kept, the process died, or this is the first request. (Many searches have only one,
    /// for which a process is not worth keeping.) No kept process runs then, as the
    /// limit on the number of processes may have no place for two.
    std::optional<FileRun> describe(int directory, std::span<const std::string> names);

private:
    struct Owner {
        pid_t process = -1;
        uid_t user = 0;
        gid_t group = 0;
        bool operator==(const Owner&) const = default;
    };
    bool isReady();
    std::optional<FileRun> request(const std::string& prefix, std::span<const std::string> names,
                                   ChildProcess::Clock::duration limit);

    std::optional<ChildProcess> process_;
    Owner owner_;
    bool asked_ = false;
    bool unusable_ = false;
};

}  // namespace fscanner

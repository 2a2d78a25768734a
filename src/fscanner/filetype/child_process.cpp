#include "fscanner/filetype/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace fscanner {
namespace {

/// What the child's descriptors become. The order matters when the host has
/// closed some of its own first three, so that ours lie there: each step uses up
/// its descriptor before another may overwrite it.
class DescriptorActions {
public:
    DescriptorActions(int directory, int output) : valid_(init() && add(directory, output)) {}
    DescriptorActions(const DescriptorActions&) = delete;
    DescriptorActions& operator=(const DescriptorActions&) = delete;
    ~DescriptorActions() {
        if (initialized_) posix_spawn_file_actions_destroy(&actions_);
    }
    bool valid() const { return valid_; }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    bool init() { return initialized_ = posix_spawn_file_actions_init(&actions_) == 0; }
    bool add(int directory, int output) {
        const char* nowhere = "/dev/null";
        return (directory == AT_FDCWD ||
                posix_spawn_file_actions_addfchdir_np(&actions_, directory) == 0) &&
               posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO) == 0 &&
               posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, nowhere, O_RDONLY, 0) ==
                   0 &&
               posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, nowhere, O_WRONLY, 0) ==
                   0 &&
               posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1) == 0;
    }

    posix_spawn_file_actions_t actions_{};
    bool initialized_ = false;
    bool valid_;
};

/// Every signal with its default action and none blocked, whatever the host does.
class SignalAttributes {
public:
    SignalAttributes() : initialized_(posix_spawnattr_init(&attributes_) == 0) {
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        valid_ = initialized_ && posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
                 posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
                 posix_spawnattr_setflags(&attributes_,
                                          POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK) == 0;
    }
    SignalAttributes(const SignalAttributes&) = delete;
    SignalAttributes& operator=(const SignalAttributes&) = delete;
    ~SignalAttributes() {
        if (initialized_) posix_spawnattr_destroy(&attributes_);
    }
    bool valid() const { return valid_; }
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
    bool initialized_;
    bool valid_ = false;
};

/// Null-terminated pointers into `texts`, for exec.
std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

/// Made anew instead of inherited: MAGIC, HOME (~/.magic) and POSIXLY_CORRECT would
/// change what `file` answers. The time zone shows in some descriptions and is kept.
std::vector<std::string> environment() {
    std::vector<std::string> variables{"LANG=C", "LC_ALL=C", "PATH=/usr/bin:/bin"};
    if (const char* zone = std::getenv("TZ")) variables.push_back(std::string("TZ=") + zone);
    return variables;
}

/// The process's id, or -1.
pid_t spawn(const std::vector<std::string>& arguments, int directory, int output) {
    DescriptorActions descriptors(directory, output);
    SignalAttributes signals;
    if (arguments.empty() || !descriptors.valid() || !signals.valid()) return -1;
    std::vector<std::string> variables = environment();
    pid_t pid = -1;
    int error = posix_spawn(&pid, arguments[0].c_str(), descriptors.get(), signals.get(),
                            pointersTo(arguments).data(), pointersTo(variables).data());
    return error == 0 ? pid : -1;
}

int millisecondsUntil(ChildProcess::Clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - ChildProcess::Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
}

/// Waits until `descriptor` can be read. 1, 0 after the deadline, or -1.
int waitReadable(int descriptor, ChildProcess::Clock::time_point deadline) {
    pollfd poller{descriptor, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&poller, 1, millisecondsUntil(deadline));
    } while (ready < 0 && errno == EINTR);
    return ready;
}

pid_t waitFor(pid_t pid, int options) {
    pid_t waited = 0;
    do {
        waited = waitpid(pid, nullptr, options);
    } while (waited < 0 && errno == EINTR);
    return waited;
}

}  // namespace

std::optional<ChildProcess> ChildProcess::start(const std::vector<std::string>& arguments,
                                                int directory) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
    pid_t pid = spawn(arguments, directory, ends[1]);
    close(ends[1]);
    if (pid < 0) {
        close(ends[0]);
        return std::nullopt;
    }
    return ChildProcess(pid, ends[0]);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), output_(std::exchange(other.output_, -1)) {}

ChildProcess::~ChildProcess() {
    if (pid_ < 0) return;
    close(output_);
    // Only a process that is surely still ours is killed: a host that ignores SIGCHLD
    // or reaps all its children leaves us ECHILD, and the id may be another's by now.
    if (waitFor(pid_, WNOHANG) != 0) return;
    kill(pid_, SIGKILL);
    waitFor(pid_, 0);
}

ChildProcess::ReadEnd ChildProcess::read(Clock::time_point deadline,
                                         const std::function<bool(std::string_view)>& sink) {
    std::array<char, 16384> buffer{};
    while (true) {
        int ready = waitReadable(output_, deadline);
        if (ready <= 0) return ready == 0 ? ReadEnd::timedOut : ReadEnd::failed;
        ssize_t count = ::read(output_, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return count == 0 ? ReadEnd::endOfOutput : ReadEnd::failed;
        if (!sink({buffer.data(), static_cast<std::size_t>(count)})) return ReadEnd::stopped;
        if (Clock::now() >= deadline) return ReadEnd::timedOut;
    }
}

}  // namespace fscanner

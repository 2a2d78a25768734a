#include "fscanner/filetype/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {
namespace {

/// The steps that set up the child's descriptors. Their order matters when the host has
/// closed some of its descriptors 0 to 2, because our directory or socket may have that
/// number then: each is used before a later step may overwrite it.
class DescriptorActions {
public:
    DescriptorActions(int directory, int socket, ChildProcess::Input input)
        : valid_(init() && add(directory, socket) && addInput(input) && addRest()) {}
    DescriptorActions(const DescriptorActions&) = delete;
    DescriptorActions& operator=(const DescriptorActions&) = delete;
    ~DescriptorActions() {
        if (initialized_) posix_spawn_file_actions_destroy(&actions_);
    }
    bool valid() const { return valid_; }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    bool init() { return initialized_ = posix_spawn_file_actions_init(&actions_) == 0; }
    bool add(int directory, int socket) {
        return (directory == AT_FDCWD ||
                posix_spawn_file_actions_addfchdir_np(&actions_, directory) == 0) &&
               posix_spawn_file_actions_adddup2(&actions_, socket, STDOUT_FILENO) == 0;
    }
    bool addInput(ChildProcess::Input input) {
        return input == ChildProcess::Input::asked
                   ? posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDIN_FILENO) == 0
                   : addNowhere(STDIN_FILENO, O_RDONLY);
    }
    bool addRest() {
        return addNowhere(STDERR_FILENO, O_WRONLY) &&
               posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1) == 0;
    }
    bool addNowhere(int descriptor, int mode) {
        return posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", mode, 0) == 0;
    }

    posix_spawn_file_actions_t actions_{};
    bool initialized_ = false;
    bool valid_;
};

/// Gives every signal its default action and blocks none, whatever the host has set.
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

/// Not inherited, because MAGIC, HOME (~/.magic) and POSIXLY_CORRECT would change the
/// answers of `file`. TZ is kept: some descriptions contain local times.
std::vector<std::string> environment() {
    std::vector<std::string> variables{"LANG=C", "LC_ALL=C", "PATH=/usr/bin:/bin"};
    if (const char* zone = std::getenv("TZ")) variables.push_back(std::string("TZ=") + zone);
    return variables;
}

/// Starts the program; returns its process id, or -1. posix_spawn instead of fork: a fork would
/// copy the page tables of a large host.
pid_t spawn(const std::vector<std::string>& arguments, int directory, int socket,
            ChildProcess::Input input) {
    DescriptorActions descriptors(directory, socket, input);
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

/// Waits for the events of `poller`. Returns 1, 0 after the deadline, or -1.
int waitReady(pollfd& poller, ChildProcess::Clock::time_point deadline) {
    return uninterrupted([&] { return poll(&poller, 1, millisecondsUntil(deadline)); });
}

/// Sends as much of `text` as fits without waiting, and returns the rest. The rest is empty
/// once the other end is closed.
std::string_view sendSome(int socket, std::string_view text) {
    ssize_t sent = send(socket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) return text;
    return sent < 0 ? std::string_view() : text.substr(static_cast<std::size_t>(sent));
}

/// Reaps the process if it has ended. True also when it is no child of ours (any more).
bool reap(pid_t pid) {
    return uninterrupted([pid] { return waitpid(pid, nullptr, WNOHANG); }) != 0;
}

/// SIGKILL may take effect late: a process that waits in the kernel for a server that is gone
/// ends only after that wait, and a traced process only when its debugger lets it go. So the
/// wait for its end is limited.
void reapWithinASecond(pid_t pid) {
    const auto deadline = ChildProcess::Clock::now() + std::chrono::seconds(1);
    auto pause = std::chrono::microseconds(100);
    while (!reap(pid)) {
        if (ChildProcess::Clock::now() >= deadline) {
            debug("ChildProcess - process %d was killed and does not end\n", static_cast<int>(pid));
            return;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(2 * pause, std::chrono::microseconds(10'000));
    }
}
}  // namespace

// A socket pair instead of pipes: one descriptor serves both directions, and sending to a program
// that has ended raises no SIGPIPE in the host (MSG_NOSIGNAL).
std::optional<ChildProcess> ChildProcess::start(const std::vector<std::string>& arguments,
                                                int directory, Input input) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return std::nullopt;
    Descriptor ours = aboveStandardStreams(Descriptor(ends[0]));
    const Descriptor theirs(ends[1]);
    pid_t pid = ours ? spawn(arguments, directory, theirs.get(), input) : -1;
    if (pid < 0) return std::nullopt;
    return ChildProcess(pid, std::move(ours));
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), socket_(std::move(other.socket_)) {}

ChildProcess::~ChildProcess() {
    if (pid_ < 0) return;
    socket_.close();
    // Kill only a process that is certainly our child. When the host ignores SIGCHLD or reaps
    // all children, waitpid fails with ECHILD, and another process may have the id by now.
    if (reap(pid_)) return;
    kill(pid_, SIGKILL);
    reapWithinASecond(pid_);
}

// Sends and reads in turn, as the socket allows. Sending everything first could block for ever: the
// program stops reading when its own output is not read.
ChildProcess::ReadEnd ChildProcess::exchange(std::string_view question, Clock::time_point deadline,
                                             const Sink& sink) {
    std::array<char, 16384> buffer{};
    do {
        pollfd poller{socket_.get(), POLLIN, 0};
        if (!question.empty()) poller.events |= POLLOUT;
        int ready = waitReady(poller, deadline);
        if (ready <= 0) return ready == 0 ? ReadEnd::timedOut : ReadEnd::failed;
        if ((poller.revents & POLLOUT) != 0) question = sendSome(socket_.get(), question);
        if ((poller.revents & ~POLLOUT) == 0) continue;
        ssize_t count = ::read(socket_.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        // ECONNRESET: the program ended with a part of the question unread.
        if (count == 0 || (count < 0 && errno == ECONNRESET)) return ReadEnd::endOfOutput;
        if (count < 0) return ReadEnd::failed;
        if (!sink({buffer.data(), static_cast<std::size_t>(count)})) return ReadEnd::stopped;
    } while (Clock::now() < deadline);
    return ReadEnd::timedOut;
}

// ---- A process of the file program that is kept -----------------------------

namespace {

constexpr std::chrono::milliseconds kStartTimeout{5'000};

/// Whether /proc shows our process under the id that we know. In a container it may be mounted
/// for another PID namespace.
bool procHasOurPids() {
    std::array<char, 32> target{};
    const ssize_t size = readlink("/proc/self", target.data(), target.size());
    return size > 0 && std::string_view(target.data(), static_cast<std::size_t>(size)) ==
                           std::to_string(getpid());
}

/// A path by which another process reaches the directory; it ends with a slash. It leads through
/// our thread, because a thread may have a descriptor table of its own.
std::string pathFor(int directory) {
    return "/proc/" + std::to_string(getpid()) + "/task/" + std::to_string(gettid()) + "/fd/" +
           std::to_string(directory) + "/";
}

/// An error message of `file` quotes the path. Replaces the prefix there by "./", so that the
/// message is the same as that of a `file` started in the directory.
void shorten(std::string& description, const std::string& prefix) {
    const std::size_t quote = description.find("`" + prefix);
    if (quote != description.npos) description.replace(quote + 1, prefix.size(), "./");
}

}  // namespace

std::optional<FileRun> RunningFile::request(const std::string& prefix,
                                            std::span<const std::string> names,
                                            ChildProcess::Clock::duration limit) {
    // The first question is for the directory itself. Any other answer than "directory" means
    // that the process cannot reach it, or that questions and answers are out of step.
    std::string lines = prefix + ".\n";
    for (const std::string& name : names) lines.append(prefix).append(name).append("\n");
    FileOutput output(names.size() + 1);
    auto end = process_->exchange(lines, ChildProcess::Clock::now() + limit, [&](auto bytes) {
        output.append(bytes);
        return !output.complete();
    });
    FileRun run{std::move(output.descriptions())};
    // If the process ended, its age may be the reason, such as a limit on CPU time, and not a
    // file. So its answers are not used; a run of its own shows whether a file is to blame.
    const bool inStep = end != ChildProcess::ReadEnd::endOfOutput && !run.descriptions.empty() &&
                        run.descriptions.front().ends_with("directory");
    if (!inStep || run.descriptions.size() <= names.size()) process_.reset();
    if (!inStep) return std::nullopt;
    run.descriptions.erase(run.descriptions.begin());
    for (std::string& description : run.descriptions) shorten(description, prefix);
    return run;
}

bool RunningFile::isReady() {
    const Owner owner{getpid(), geteuid(), getegid()};
    if (std::exchange(owner_, owner) != owner) process_.reset();
    if (process_ || unusable_) return !unusable_;
    std::vector<std::string> arguments = fileArguments();
    arguments.insert(arguments.end(), {"-f", "-"});
    // It runs in "/", so that it keeps no other file system busy.
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    auto process = root && procHasOurPids()
                       ? ChildProcess::start(arguments, root.get(), ChildProcess::Input::asked)
                       : std::nullopt;
    if (process) process_.emplace(*std::move(process));
    const auto timeout = std::min(kStartTimeout, fileProgram().timePerRun);
    unusable_ = !process_ || !request(pathFor(root.get()), {}, timeout);
    return !unusable_;
}

std::optional<FileRun> RunningFile::describe(int directory, std::span<const std::string> names) {
    const auto hasNewline = [](const std::string& name) { return name.find('\n') != name.npos; };
    if (!std::exchange(asked_, true)) return std::nullopt;
    if (std::any_of(names.begin(), names.end(), hasNewline)) {
        process_.reset();
        return std::nullopt;
    }
    if (!isReady()) return std::nullopt;
    return request(pathFor(directory), names, fileProgram().timeFor(names.size()));
}

}  // namespace fscanner

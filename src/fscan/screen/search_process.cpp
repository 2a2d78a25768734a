#include "fscan/screen/search_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace fscan {

namespace {

constexpr std::size_t kMostMessages = 4096;
constexpr int kMostReads = 8;

void closeOne(int& descriptor) {
    if (descriptor >= 0) ::close(descriptor);
    descriptor = -1;
}

/// Both ends; the one for us does not wait.
bool makePipe(std::array<int, 2>& ends) {
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return true;
}

/// The files and signals of the child: it is not stopped by what the screen takes as keys.
struct Start {
    Start(int output, int messages) {
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&files, messages, STDERR_FILENO);
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&signals, signal);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    Start(const Start&) = delete;
    Start& operator=(const Start&) = delete;
    ~Start() {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    posix_spawn_file_actions_t files{};
    posix_spawnattr_t attributes{};
};

}  // namespace

bool SearchProcess::start(const std::vector<std::string>& arguments) {
    stop();
    rest_.clear();
    said_.clear();
    std::array<int, 2> output{-1, -1}, messages{-1, -1};
    bool started = makePipe(output) && makePipe(messages);
    if (started) {
        const Start start(output[1], messages[1]);
        std::vector<char*> words{const_cast<char*>("fscan")};
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        started = ::posix_spawn(&process_, "/proc/self/exe", &start.files, &start.attributes,
                                words.data(), environ) == 0;
    }
    closeOne(output[1]);
    closeOne(messages[1]);
    output_ = output[0];
    messages_ = messages[0];
    if (!started) {
        process_ = -1;
        close();
    }
    return started;
}

void SearchProcess::stop() {
    if (process_ > 0) ::kill(process_, SIGTERM);
    close();
    finish();
}

void SearchProcess::close() {
    closeOne(output_);
    closeOne(messages_);
}

bool SearchProcess::takeOutput(const TakePath& take) {
    static std::array<char, 65536> buffer;
    for (int reads = 0; reads < kMostReads; ++reads) {
        const ssize_t length = ::read(output_, buffer.data(), buffer.size());
        if (length < 0 && (errno == EAGAIN || errno == EINTR)) return true;
        if (length <= 0) {
            closeOne(output_);
            return false;
        }
        std::string_view read(buffer.data(), static_cast<std::size_t>(length));
        for (std::size_t end; (end = read.find('\0')) != read.npos; read.remove_prefix(end + 1)) {
            if (rest_.empty()) {
                take(read.substr(0, end));
                continue;
            }
            rest_ += read.substr(0, end);
            take(rest_);
            rest_.clear();
        }
        rest_ += read;
    }
    return true;
}

bool SearchProcess::takeMessages() {
    std::array<char, 4096> buffer;
    const ssize_t length = ::read(messages_, buffer.data(), buffer.size());
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    if (length <= 0) {
        closeOne(messages_);
        return false;
    }
    if (said_.size() < kMostMessages) said_.append(buffer.data(), static_cast<std::size_t>(length));
    return true;
}

int SearchProcess::finish() {
    if (process_ <= 0) return 0;
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace fscan

#include "command_runner.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "messages.h"
#include "options.h"
#include "output.h"

namespace fscan {

namespace {

constexpr std::string_view placeholder = "{}";
// An argument takes its bytes, a zero and a pointer.
constexpr std::size_t besides = 1 + sizeof(char*);

std::string replaced(std::string text, const std::string& path) {
    for (std::size_t at = 0; (at = text.find(placeholder, at)) != text.npos; at += path.size())
        text.replace(at, placeholder.size(), path);
    return text;
}

/// What the kernel takes for arguments, less the environment and some for the program.
std::size_t roomForArguments() {
    constexpr std::size_t reserve = 8192, least = 4096, most = std::size_t{1} << 20;
    std::size_t used = reserve;
    for (char** variable = environ; *variable != nullptr; ++variable)
        used += std::string_view(*variable).size() + besides;
    const long limit = sysconf(_SC_ARG_MAX);
    const std::size_t all = limit > 0 ? static_cast<std::size_t>(limit) : 32768;
    return std::clamp(all > used ? all - used : 0, least, most);
}

/// The kernel takes no argument of more bytes, its zero included.
std::size_t roomForOneArgument() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) * 32;
}

/// A path that no program takes for an option.
std::string safePath(std::string_view path) {
    return (path.starts_with('-') ? "./" : "") + std::string(path);
}

volatile std::sig_atomic_t signalMeanwhile = 0;

extern "C" void noteMeanwhile(int signal) {
    signalMeanwhile = signal;
}

/// While a command runs, the keys that end programs are for it: a pager takes a Ctrl-C, and
/// must not lose the terminal to whoever started us. As handlers are not inherited, it
/// meets them as it would without us.
class KeysForCommand {
public:
    KeysForCommand() {
        signalMeanwhile = 0;
        struct sigaction noting {};
        noting.sa_handler = noteMeanwhile;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            sigaction(keys[i], nullptr, &before_[i]);
            if (before_[i].sa_handler != SIG_IGN) sigaction(keys[i], &noting, nullptr);
        }
    }
    KeysForCommand(const KeysForCommand&) = delete;
    KeysForCommand& operator=(const KeysForCommand&) = delete;
    ~KeysForCommand() {
        for (std::size_t i = 0; i < keys.size(); ++i) sigaction(keys[i], &before_[i], nullptr);
    }

private:
    static constexpr std::array<int, 2> keys = {SIGINT, SIGQUIT};
    std::array<struct sigaction, 2> before_{};
};

/// Runs a command to its end. An errno where it cannot be started, or 0 and its status as
/// waitpid gives it.
int runToEnd(char* const* arguments, int& status) {
    const KeysForCommand keys;
    pid_t child = -1;
    if (const int error = posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments, environ))
        return error;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return 0;
}

}  // namespace

CommandRunner::CommandRunner(const Options& options, Output& out)
    : MatchConsumer(options.limit),
      words_(options.batchCommand ? *options.batchCommand : *options.command),
      out_(out),
      batch_(options.batchCommand.has_value()),
      room_(roomForArguments()),
      wordRoom_(roomForOneArgument()) {
    const bool placed = std::any_of(words_.begin(), words_.end(), [this](const std::string& word) {
        return batch_ ? word == placeholder : word.find(placeholder) != word.npos;
    });
    if (!placed) words_.emplace_back(placeholder);
    allRoom_ = room_;
    for (const std::string& word : words_) room_ -= std::min(room_, word.size() + besides);
}

bool CommandRunner::consume(const Match& match) {
    const std::string path = safePath(match.path);
    if (!batch_) {
        Words words;
        for (const std::string& word : words_) words.push_back(replaced(word, path));
        return fits(words, allRoom_) ? run(words) : leaveOut(path);
    }
    if (!fits({path}, room_)) return leaveOut(path);
    if (!waiting_.empty() && waitingBytes_ + path.size() + besides > room_ && !runBatch())
        return false;
    waiting_.push_back(path);
    waitingBytes_ += path.size() + besides;
    return true;
}

bool CommandRunner::fits(const Words& words, std::size_t room) const {
    std::size_t bytes = 0;
    for (const std::string& word : words) {
        if (word.size() >= wordRoom_) return false;
        bytes += word.size() + besides;
    }
    return bytes <= room;
}

// No command can be told of it: the others go on without.
bool CommandRunner::leaveOut(const std::string& path) {
    complain(path, E2BIG);
    ++leftOut_;
    return true;
}

void CommandRunner::finish() {
    if (!waiting_.empty() && !notRun_) runBatch();
    if (failures_ > 0)
        complain(fmt::format("{}: {} of {} runs failed", words_[0], failures_, runs_));
}

bool CommandRunner::runBatch() {
    Words words;
    for (const std::string& word : words_) {
        if (word == placeholder) {
            words.insert(words.end(), waiting_.begin(), waiting_.end());
        } else {
            words.push_back(word);
        }
    }
    waiting_.clear();
    waitingBytes_ = 0;
    return run(words);
}

// False when the command cannot be run, which no other match would change.
bool CommandRunner::run(const Words& words) {
    out_.flush();
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    int status = 0;
    if (const int error = runToEnd(arguments.data(), status)) {
        complain(words[0], error);
        notRun_ = true;
        return false;
    }
    ++runs_;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
    ++failures_;
    // A command that a key ended ends us, too: there may be thousands to come.
    if (signalMeanwhile == 0) return true;
    raise(signalMeanwhile);
    return false;
}

}  // namespace fscan

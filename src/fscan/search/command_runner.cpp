#include "fscan/search/command_runner.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "fscan/match/match.h"
#include "fscan/output/output.h"
#include "fscan/search/search.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"

namespace fscan {

namespace {

constexpr std::string_view kPlaceholder = "{}";
// The room that an argument takes besides its bytes: a zero and a pointer.
constexpr std::size_t kOverhead = 1 + sizeof(char*);

std::string replaced(std::string text, const std::string& path) {
    for (std::size_t at = 0; (at = text.find(kPlaceholder, at)) != text.npos; at += path.size())
        text.replace(at, kPlaceholder.size(), path);
    return text;
}

/// The bytes of arguments that the kernel accepts, less the environment and a reserve.
std::size_t roomForArguments() {
    constexpr std::size_t reserve = 8192, least = 4096, most = std::size_t{1} << 20;
    std::size_t used = reserve;
    for (char** variable = environ; *variable != nullptr; ++variable)
        used += std::string_view(*variable).size() + kOverhead;
    const long limit = sysconf(_SC_ARG_MAX);
    const std::size_t all = limit > 0 ? static_cast<std::size_t>(limit) : 32768;
    return std::clamp(all > used ? all - used : 0, least, most);
}

/// The size of the longest argument that the kernel accepts, its zero included.
std::size_t roomForOneArgument() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) * 32;
}

/// A path that no program takes for an option.
std::string safePath(std::string_view path) {
    return (path.starts_with('-') ? "./" : "") + std::string(path);
}

volatile std::sig_atomic_t notedSignal = 0;

extern "C" void noteSignal(int signal) {
    notedSignal = signal;
}

/// While a command runs, Ctrl-C and Ctrl-\ are only noted: the command decides on them. A pager
/// handles Ctrl-C and must not lose the terminal, as it would if we ended first. The command does
/// not inherit the handlers.
class SignalsForCommand {
public:
    SignalsForCommand() {
        notedSignal = 0;
        struct sigaction noting {};
        noting.sa_handler = noteSignal;
        for (std::size_t i = 0; i < kKeys.size(); ++i) {
            sigaction(kKeys[i], nullptr, &before_[i]);
            if (before_[i].sa_handler != SIG_IGN) sigaction(kKeys[i], &noting, nullptr);
        }
    }
    SignalsForCommand(const SignalsForCommand&) = delete;
    SignalsForCommand& operator=(const SignalsForCommand&) = delete;
    ~SignalsForCommand() {
        for (std::size_t i = 0; i < kKeys.size(); ++i) sigaction(kKeys[i], &before_[i], nullptr);
    }

private:
    static constexpr std::array<int, 2> kKeys = {SIGINT, SIGQUIT};
    std::array<struct sigaction, 2> before_{};
};

/// Runs a program to its end, in an open directory if one is given. Returns an errno where it
/// cannot be started, else 0, with the status of waitpid.
int runToEnd(const std::string& program, char* const* arguments, std::optional<int> directory,
             int& status) {
    const SignalsForCommand keys;
    posix_spawn_file_actions_t actions;
    if (const int error = posix_spawn_file_actions_init(&actions)) return error;
    pid_t child = -1;
    int error = 0;
    if (directory) error = posix_spawn_file_actions_addfchdir_np(&actions, *directory);
    if (error == 0)
        error = posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) return error;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return 0;
}

/// The first directory of the variable PATH that is not absolute, if there is one.
std::optional<std::string> relativeProgramDirectory() {
    const char* const variable = std::getenv("PATH");
    if (variable == nullptr) return std::nullopt;
    std::string_view rest = variable;
    for (;;) {
        const std::size_t colon = rest.find(':');
        const std::string_view directory = rest.substr(0, colon);
        if (!directory.starts_with('/')) return std::string(directory);
        if (colon == rest.npos) return std::nullopt;
        rest.remove_prefix(colon + 1);
    }
}

/// The program for the first word of a command. A relative path is taken from our current
/// directory, not from the match's, where others may put files. A match that is run itself is
/// taken from its own directory.
std::string programOf(const std::string& word, CommandUse use) {
    const bool isMatch = word.find(kPlaceholder) != word.npos;
    if (use != CommandUse::inDirectory || isMatch || word.find('/') == word.npos) return word;
    std::error_code error;
    return std::filesystem::absolute(word, error).native();
}

/// The user's criteria if they read a field that may have changed, else null.
std::unique_ptr<fscanner::FsRecordFilter> changeableCriteria(const Search& search) {
    const std::wstring& where = search.conditions.where;
    const bool caseSensitive = !search.options.ignoreCase;
    const auto fields = fscanner::fsCheckCriteria(where.c_str(), caseSensitive).fields;
    const bool changeable = std::any_of(fields.begin(), fields.end(), [](const auto& field) {
        return field == L"SIZE" || field == L"ATTR";
    });
    if (!changeable) return nullptr;
    return fscanner::FsRecordFilter::create(where.c_str(), caseSensitive);
}

}  // namespace

MatchCheck::MatchCheck(const Search& search, FileExaminer& examiner)
    : search_(search),
      examiner_(examiner),
      place_(search.roots),
      where_(changeableCriteria(search)) {}

bool MatchCheck::holds(const Match& match) {
    const FileExaminer::Found found = examine(match);
    if (found != FileExaminer::Found::there) examiner_.leaveOut(found);
    return found == FileExaminer::Found::there;
}

FileExaminer::Found MatchCheck::examine(const Match& match) {
    using enum FileExaminer::Found;
    directory_ = &place_.directoryOf(match);
    const std::string name(match.name());
    struct stat info {};
    const FileExaminer::Found found = examiner_.examine(*directory_, name.c_str(), info);
    if (found != there) return found;
    if (!isSameKind(match.facts.attributes, FileDetails::of(info).attributes) ||
        !isWanted(name.c_str(), info))
        return changed;
    // The given PATH may be a link that leads elsewhere by now. A path that is too long for the
    // system is of no use to a command, but leads nowhere else either.
    struct stat named {};
    const std::string path(match.path);
    const bool followed = search_.options.followLinks && stat(path.c_str(), &named) == 0;
    if (!followed && lstat(path.c_str(), &named) != 0) return errno == ENAMETOOLONG ? there : gone;
    return named.st_dev == info.st_dev && named.st_ino == info.st_ino ? there : changed;
}

/// Compares again: sizes and permissions may have been old before.
bool MatchCheck::isWanted(const char* name, const struct stat& info) {
    if (!search_.conditions.files.accept(FileDetails::of(info))) return false;
    if (!where_) return true;
    record_.clear();
    record_.setFilePath(directory_->c_str());
    record_.setFileName(toWide(name).c_str());
    return record_.updateFrom(info) && where_->matches(record_);
}

std::unique_ptr<CommandRunner> CommandRunner::create(const Search& search, FileExaminer& examiner,
                                                     Output& out) {
    if (search.options.commandUse == CommandUse::inDirectory) {
        if (const std::optional<std::string> directory = relativeProgramDirectory()) {
            complain(fmt::format(
                "--exec-dir: PATH has a directory that is not absolute, \"{}\": programs could "
                "be taken from the directories of the files",
                *directory));
            return nullptr;
        }
    }
    return std::unique_ptr<CommandRunner>(new CommandRunner(search, examiner, out));
}

CommandRunner::CommandRunner(const Search& search, FileExaminer& examiner, Output& out)
    : MatchConsumer(search.options.limit),
      check_(search, examiner),
      words_(*search.options.command),
      program_(programOf(words_[0], search.options.commandUse)),
      out_(out),
      use_(search.options.commandUse),
      room_(roomForArguments()),
      wordRoom_(roomForOneArgument()) {
    const bool placed = std::any_of(words_.begin(), words_.end(), [this](const std::string& word) {
        return use_ == CommandUse::forMany ? word == kPlaceholder
                                           : word.find(kPlaceholder) != word.npos;
    });
    if (!placed) words_.emplace_back(kPlaceholder);
    allRoom_ = room_;
    for (const std::string& word : words_) room_ -= std::min(room_, word.size() + kOverhead);
}

/// A batch may take long: who waits for it is looked at when it is over.
bool CommandRunner::admit(const Match& match) {
    if (!waiting_.empty() && !hasRoom(safePath(match.path))) stopped_ = !runBatch();
    return check_.holds(match);
}

bool CommandRunner::consume(const Match& match) {
    if (stopped_) return false;
    const std::string path =
        use_ == CommandUse::inDirectory ? "./" + std::string(match.name()) : safePath(match.path);
    if (use_ != CommandUse::forMany) {
        Words words;
        for (const std::string& word : words_) words.push_back(replaced(word, path));
        return fits(words, allRoom_) ? run(words) : leaveOut(path);
    }
    if (!fits({path}, room_)) return leaveOut(path);
    waiting_.push_back(path);
    waitingBytes_ += path.size() + kOverhead;
    return true;
}

bool CommandRunner::hasRoom(const std::string& path) const {
    return waitingBytes_ + path.size() + kOverhead <= room_;
}

bool CommandRunner::fits(const Words& words, std::size_t room) const {
    std::size_t bytes = 0;
    for (const std::string& word : words) {
        if (word.size() >= wordRoom_) return false;
        bytes += word.size() + kOverhead;
    }
    return bytes <= room;
}

// Tells that no command can be given the path. The other matches go on.
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
        if (word == kPlaceholder) {
            words.insert(words.end(), waiting_.begin(), waiting_.end());
        } else {
            words.push_back(word);
        }
    }
    waiting_.clear();
    waitingBytes_ = 0;
    return run(words);
}

// False when the command cannot be started, as it could not be for any other match.
bool CommandRunner::run(const Words& words) {
    out_.flush();
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    int status = 0;
    std::optional<int> directory;
    if (use_ == CommandUse::inDirectory) directory = check_.directory();
    const std::string& program = words_[0] == words[0] ? program_ : words[0];
    if (const int error = runToEnd(program, arguments.data(), directory, status)) {
        complain(words[0], error);
        notRun_ = true;
        return false;
    }
    ++runs_;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
    ++failures_;
    // A key that ended the command ends this program, too: thousands of runs may follow.
    if (notedSignal == 0) return true;
    raise(notedSignal);
    return false;
}

}  // namespace fscan

#include "fscanner/filetype/running_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "fscanner/filetype/file_program.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {
namespace {

constexpr std::chrono::milliseconds startTimeout{5'000};

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
    const auto timeout = std::min(startTimeout, fileProgram().timePerRun);
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

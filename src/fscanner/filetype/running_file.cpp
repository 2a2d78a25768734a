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

constexpr std::chrono::milliseconds patienceAtStart{5'000};

/// Whether /proc speaks of processes by the same numbers as we do.
bool procKnowsUs() {
    std::array<char, 32> target{};
    const ssize_t size = readlink("/proc/self", target.data(), target.size());
    return size > 0 && std::string_view(target.data(), static_cast<std::size_t>(size)) ==
                           std::to_string(getpid());
}

/// The directory's path for another process, with a slash behind it. By our thread, which
/// may have descriptors of its own.
std::string pathFor(int directory) {
    return "/proc/" + std::to_string(getpid()) + "/task/" + std::to_string(gettid()) + "/fd/" +
           std::to_string(directory) + "/";
}

/// A complaint quotes the file's path: make it the one that a `file` in the
/// directory would quote.
void shorten(std::string& description, const std::string& prefix) {
    const std::size_t quote = description.find("`" + prefix);
    if (quote != description.npos) description.replace(quote + 1, prefix.size(), "./");
}

}  // namespace

std::optional<FileRun> RunningFile::request(const std::string& prefix,
                                            std::span<const std::string> names,
                                            ChildProcess::Clock::duration limit) {
    // The directory itself goes first: if the answer is another, it cannot be reached, or
    // the two are not in step.
    std::string lines = prefix + ".\n";
    for (const std::string& name : names) lines.append(prefix).append(name).append("\n");
    FileOutput output(names.size() + 1);
    auto end = process_->exchange(lines, ChildProcess::Clock::now() + limit, [&](auto bytes) {
        output.append(bytes);
        return !output.complete();
    });
    FileRun run{std::move(output.descriptions())};
    // One that died may have done so of its age, such as a limit on its CPU time: another
    // shows whether a file is to blame.
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
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    auto process = root && procKnowsUs()
                       ? ChildProcess::start(arguments, root.get(), ChildProcess::Input::asked)
                       : std::nullopt;
    if (process) process_.emplace(*std::move(process));
    const auto patience = std::min(patienceAtStart, fileProgram().timePerRun);
    unusable_ = !process_ || !request(pathFor(root.get()), {}, patience);
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

#include "fscanner/filetype/file_program.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "fscanner/filetype/child_process.h"

namespace fscanner {

// ---- Output -----------------------------------------------------------------

bool FileOutput::complete() const {
    return descriptions_.size() >= fileCount_ || received_ / (kLongestDescription + 1) > fileCount_;
}

void FileOutput::append(std::string_view bytes) {
    received_ += bytes.size();
    while (!bytes.empty() && descriptions_.size() < fileCount_) {
        std::size_t end = std::min(bytes.find('\0'), bytes.size());
        current_.append(bytes.substr(0, std::min(end, kLongestDescription - current_.size())));
        if (end == bytes.size()) return;
        descriptions_.push_back(std::exchange(current_, {}));
        bytes.remove_prefix(end + 1);
    }
}

std::vector<std::wstring> splitTypeWords(std::wstring_view text) {
    constexpr std::wstring_view separators = L" ,:";
    std::vector<std::wstring> words;
    std::size_t start = text.find_first_not_of(separators);
    while (start != std::wstring_view::npos) {
        std::size_t end = std::min(text.find_first_of(separators, start), text.size());
        words.emplace_back(text.substr(start, end - start));
        start = text.find_first_not_of(separators, end);
    }
    return words;
}

std::wstring descriptionOf(std::wstring_view line, std::size_t pathLength) {
    std::wstring description(line.substr(std::min(pathLength, line.size())));
    std::replace(description.begin(), description.end(), L'\t', L' ');
    std::replace(description.begin(), description.end(), L'\n', L' ');
    return description;
}

// ---- Runs -------------------------------------------------------------------

namespace {

// So many crashes are tolerated in one directory; after one more, its other files get no type.
// Each crash costs a start of the program.
constexpr int kMaxCrashes = 8;

std::string findProgram() {
    for (const char* candidate : {"/usr/bin/file", "/bin/file"}) {
        if (access(candidate, X_OK) == 0) return candidate;
    }
    return {};
}

/// The start of a program in a directory fails if the directory is readable but not
/// searchable. That does not mean that `file` is missing.
bool canEnter(int directory) {
    return directory == AT_FDCWD || faccessat(directory, ".", X_OK, AT_EACCESS) == 0;
}

FileRun run(const std::vector<std::string>& arguments, int directory, std::size_t count) {
    FileProgram& program = fileProgram();
    auto process = program.path.empty() ? std::nullopt : ChildProcess::start(arguments, directory);
    if (!process) {
        fileProgramMissed() |= program.path.empty() || canEnter(directory);
        return {};
    }
    FileOutput output(count);
    auto deadline = ChildProcess::Clock::now() + program.timeFor(count);
    auto end = process->read(deadline, [&](std::string_view bytes) {
        output.append(bytes);
        return !output.complete();
    });
    return {std::move(output.descriptions()), end == ChildProcess::ReadEnd::endOfOutput};
}

/// How many of the first names fit in one run; at least one.
std::size_t countForOneRun(std::span<const std::string> names) {
    std::size_t bytes = 0;
    std::size_t count = 0;
    for (const std::string& name : names) {
        // An argument costs its bytes, its terminator and a pointer in `argv`.
        bytes += name.size() + sizeof("./") + sizeof(char*);
        if (count > 0 && bytes > fileProgram().argumentBytes) break;
        ++count;
    }
    return count;
}

FileRun runOver(int directory, std::span<const std::string> names, RunningFile* running) {
    if (running != nullptr && fileProgram().mayKeepRunning) {
        if (auto answered = running->describe(directory, names)) return *std::move(answered);
    }
    std::vector<std::string> arguments = fileArguments();
    arguments.emplace_back("--");
    // "./" because `file` takes the name "-" for standard input, even behind "--".
    for (const std::string& name : names) {
        arguments.push_back(name.starts_with('/') ? name : "./" + name);
    }
    return run(arguments, directory, names.size());
}

}  // namespace

FileProgram& fileProgram() {
    static FileProgram program{.path = findProgram()};
    return program;
}

bool& fileProgramMissed() {
    static thread_local bool missed = false;
    return missed;
}

std::vector<std::string> fileArguments() {
    return {fileProgram().path, "-b", "-n", "-00"};
}

std::vector<std::string> describeFiles(int directory, std::span<const std::string> names,
                                       RunningFile* running) {
    std::vector<std::string> descriptions;
    descriptions.reserve(names.size());
    int crashes = 0;
    while (descriptions.size() < names.size()) {
        auto rest = names.subspan(descriptions.size());
        auto batch = rest.first(countForOneRun(rest));
        FileRun result = runOver(directory, batch, running);
        std::move(result.descriptions.begin(), result.descriptions.end(),
                  std::back_inserter(descriptions));
        if (result.descriptions.size() == batch.size()) continue;
        if (!result.mayContinue || ++crashes > kMaxCrashes) break;
        descriptions.emplace_back();  // for the file that crashed the program
    }
    descriptions.resize(names.size());
    return descriptions;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

std::vector<std::string> describeListedFiles(const std::string& listFile, std::size_t count) {
    std::vector<std::string> arguments = fileArguments();
    arguments.insert(arguments.end(), {"-f", listFile});
    auto descriptions = run(arguments, AT_FDCWD, count).descriptions;
    descriptions.resize(count);
    return descriptions;
}

}  // namespace fscanner

#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// Splits the output of `file -b -00` into descriptions, one per file and in order.
///
/// Each description ends with a NUL, which no description can contain. So no name and
/// no content of a file can shift an answer to another file. A description is cut
/// after 8191 bytes. A broken program cannot flood us: nothing more is read once there
/// is a description for each file, or more output than that many files can need.
class FileOutput {
public:
    explicit FileOutput(std::size_t fileCount) : fileCount_(fileCount) {}

    void append(std::string_view bytes);
    /// Whether no further output is needed.
    bool complete() const;
    /// The complete descriptions so far. One without its NUL is not included.
    std::vector<std::string>& descriptions() { return descriptions_; }

    static constexpr std::size_t kLongestDescription = 8191;

private:
    std::size_t fileCount_;
    std::size_t received_ = 0;
    std::string current_;
    std::vector<std::string> descriptions_;
};

/// Splits a description or a wanted type into words. Words are separated by blanks,
/// commas and colons.
std::vector<std::wstring> splitTypeWords(std::wstring_view text);

/// A line "path: description" without its first `pathLength` characters. Tabs and
/// newlines become blanks.
std::wstring descriptionOf(std::wstring_view line, std::size_t pathLength);

class RunningFile;

/// The program `file` and its limits. Process-wide; only tests change it.
struct FileProgram {
    /// Absolute path; empty when the system has no `file`. Then every type is unknown.
    std::string path;
    /// The time limit of one run is the sum of a fixed part and a part for each file.
    std::chrono::milliseconds timePerRun{60'000};
    std::chrono::milliseconds timePerFile{100};
    /// Limit of the names in one run's arguments, in bytes. The kernel always accepts 128 KiB.
    std::size_t argumentBytes = 128 * 1024;
    /// Whether a process may be kept running for several directories (see `RunningFile`).
    bool mayKeepRunning = true;

    std::chrono::milliseconds timeFor(std::size_t files) const {
        return timePerRun + timePerFile * static_cast<long>(files);
    }
};
FileProgram& fileProgram();

/// Set to true when this thread asked for a type and `file` could not be started.
/// `AnswerGaps` resets it for each query.
bool& fileProgramMissed();

/// The program's path and the options of every run: -b leaves the names out, -00 ends each
/// answer with a NUL, and -n writes each answer at once, so that a crash loses no earlier one.
std::vector<std::string> fileArguments();

/// Describes files. `names` are names in the directory open as `directory` (AT_FDCWD: the
/// host's current directory), or absolute paths. Returns one description for each, in their
/// order; it is empty when there was no answer. Links are described, not followed.
///
/// A run gets as many names as fit in its arguments. When the program crashes on a file, a
/// new run continues behind that file, a limited number of times. After a run that takes too
/// long no other follows. With `running`, the kept process is used if possible; the answers
/// are the same.
std::vector<std::string> describeFiles(int directory, std::span<const std::string> names,
                                       RunningFile* running = nullptr);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// `describeFiles` for the first `count` files that the lines of `listFile` name, in one run.
std::vector<std::string> describeListedFiles(const std::string& listFile, std::size_t count);

}  // namespace fscanner

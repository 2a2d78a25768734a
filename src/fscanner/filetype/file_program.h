#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// Cuts the output of `file -b -00` into descriptions, one per file and in order.
///
/// Each ends with a NUL, which no description can hold, so nothing that a file is
/// called or contains can shift an answer to another file. A description keeps
/// its first 8191 bytes. Once a broken program has written far more than that
/// many files can need, or more descriptions than there are files, the rest is
/// not read.
class FileOutput {
public:
    explicit FileOutput(std::size_t fileCount) : fileCount_(fileCount) {}

    void append(std::string_view bytes);
    /// Whether nothing that could follow is of use.
    bool complete() const;
    /// The descriptions that came whole; what was cut off by the end is not one.
    std::vector<std::string>& descriptions() { return descriptions_; }

    static constexpr std::size_t longestDescription = 8191;

private:
    std::size_t fileCount_;
    std::size_t received_ = 0;
    std::string current_;
    std::vector<std::string> descriptions_;
};

/// The words of a description or of a wanted type: what stands between runs of
/// blanks, commas and colons.
std::vector<std::wstring> splitTypeWords(std::wstring_view text);

/// What stands behind the first `pathLength` characters of a line
/// "path: description", its tabs and newlines turned into blanks.
std::wstring descriptionOf(std::wstring_view line, std::size_t pathLength);

class RunningFile;

/// Which `file` is run and within which bounds. Process-wide; only tests change it.
struct FileProgram {
    /// Absolute path; empty where there is none, and then no type is known.
    std::string path;
    /// How long one run may take: a fixed part, and one for each file.
    std::chrono::milliseconds timePerRun{60'000};
    std::chrono::milliseconds timePerFile{100};
    /// Bytes of names in one run's arguments: the least that the kernel always takes.
    std::size_t argumentBytes = 128 * 1024;
    /// Whether one that is kept running may be handed several directories.
    bool mayKeepRunning = true;

    std::chrono::milliseconds timeFor(std::size_t files) const {
        return timePerRun + timePerFile * static_cast<long>(files);
    }
};
FileProgram& fileProgram();

/// Set when this thread asked for a type and the program could not be run at all.
bool& fileProgramMissed();

/// The program's path and the options of every run: brief (-b), each answer ended by a
/// NUL (-00) and written at once (-n), so that a death loses no earlier answer.
std::vector<std::string> fileArguments();

/// Describes the files `names` of the directory open as `directory` (AT_FDCWD:
/// where the host is), or of absolute paths: one description for each, in their order, empty where
/// there was no answer. Links are described, not followed.
///
/// One run for as many names as its arguments hold. A file on which the program
/// dies is left out and the rest gets another run, a few times over; a run that
/// takes too long ends the matter. With `running`, one that is kept running is handed the
/// names where that is possible; the answers are the same.
std::vector<std::string> describeFiles(int directory, std::span<const std::string> names,
                                       RunningFile* running = nullptr);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// `describeFiles` for the first `count` files that the lines of `listFile` name, in one run.
std::vector<std::string> describeListedFiles(const std::string& listFile, std::size_t count);

}  // namespace fscanner

#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace fscanner {

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

/// The same for the first `count` files that the lines of `listFile` name, in one run.
std::vector<std::string> describeListedFiles(const std::string& listFile, std::size_t count);

}  // namespace fscanner

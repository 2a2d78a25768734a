#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <vector>

#include "build_paths.h"
#include "support/temporary_directory.h"

namespace fscan::test {

enum class Stdout { pipe, terminal, full, closed, readerGone };

/// How a program is started.
struct RunSettings {
    std::string directory = ".";
    std::map<std::string, std::string> environment = {};  ///< on top of the tests' own
    Stdout to = Stdout::pipe;
    /// Standard error is a terminal.
    bool watched = false;
    unsigned short columns = 0;  ///< of that terminal; 0: unknown
    /// Standard output is not read for this long after it has begun: a program with
    /// more to write than a pipe holds takes at least that long.
    std::chrono::milliseconds pause{0};
    /// Permissions apply, even to root.
    bool withoutOverride = false;
    /// Whether fscan may answer from the cache, which is the tests' own.
    bool cached = false;
};

/// The result of a program. A signal that ended it is its negative status.
struct RunResult {
    int status = -1;
    std::string out;
    std::string err;
};

using Arguments = std::vector<std::string>;

RunResult runProgram(const std::string& program, const Arguments& arguments,
                     const RunSettings& settings = {});
/// Runs fscan.
RunResult fscan(const Arguments& arguments, const RunSettings& settings = {});

/// The pieces of an output that each end with `end`, sorted.
std::vector<std::string> records(const std::string& output, char end = '\n');

/// Whether a process can be made to which permissions apply.
bool canDropOverride();

/// Runs fscan in a directory of the test's own.
class FscanTest : public testing::Test {
protected:
    /// Writes a file, and makes the directories that hold it.
    void add(const std::string& path, const std::string& text = "") const;
    /// Runs it in the directory and, unless told otherwise, in a locale that every machine has.
    RunSettings here(RunSettings settings) const;
    RunResult run(const Arguments& arguments, const RunSettings& settings = {}) const {
        return fscan(arguments, here(settings));
    }
    /// Runs a shell command in which $0 is fscan.
    RunResult shell(const std::string& command, const RunSettings& settings = {}) const {
        return runProgram("sh", {"-c", command, FSCAN_PROGRAM}, here(settings));
    }
    Arguments found(const Arguments& arguments) const { return records(run(arguments).out); }

    fscanner::TemporaryDirectory tree_;
};

}  // namespace fscan::test

#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fscanner/filetype/child_process.h"

namespace fscanner {

/// What came of one request for descriptions.
struct FileRun {
    std::vector<std::string> descriptions;  // of the first files, as far as it got
    bool worthAnother = false;              // it died on the file that follows them
};

/// A `file` that is kept running and handed the names of one directory after another,
/// which saves a start for each.
///
/// It reaches the files through our descriptor of their directory, under /proc, as a
/// process that is started in it does: nobody can exchange the directory. Where none can
/// be kept running, that is tried once. Ends with this object. A
/// host that forks may go on in both processes: each has a `file` of its own.
class RunningFile {
public:
    /// The files `names` of the directory open as `directory`. Nothing when they must be
    /// described in another way: a name has a newline, nothing can be kept running, or
    /// this is the first question, which is the only one of many searches.
    std::optional<FileRun> describe(int directory, std::span<const std::string> names);

private:
    bool isReady();
    std::optional<FileRun> request(const std::string& prefix, std::span<const std::string> names,
                                   ChildProcess::Clock::duration limit);

    std::optional<ChildProcess> process_;
    pid_t owner_ = -1;
    bool asked_ = false;
    bool unusable_ = false;
};

}  // namespace fscanner

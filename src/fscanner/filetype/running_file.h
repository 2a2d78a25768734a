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
/// be kept running, that is tried once. It ends with this object. A host that forks may
/// go on in both processes: each has a `file` of its own, and so has each user that a
/// host becomes.
class RunningFile {
public:
    /// The files `names` of the directory open as `directory`. Nothing when they must be
    /// described in another way: a name has a newline, nothing can be kept running, it
    /// died, or this is the first question, which is the only one of many searches. None
    /// runs then: the other way may need its place under a limit.
    std::optional<FileRun> describe(int directory, std::span<const std::string> names);

private:
    struct Owner {
        pid_t process = -1;
        uid_t user = 0;
        gid_t group = 0;
        bool operator==(const Owner&) const = default;
    };
    bool isReady();
    std::optional<FileRun> request(const std::string& prefix, std::span<const std::string> names,
                                   ChildProcess::Clock::duration limit);

    std::optional<ChildProcess> process_;
    Owner owner_;
    bool asked_ = false;
    bool unusable_ = false;
};

}  // namespace fscanner

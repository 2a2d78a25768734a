#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fscanner/filetype/child_process.h"

namespace fscanner {

/// The result of one request for descriptions.
struct FileRun {
    std::vector<std::string> descriptions;  // of the first files; of all after a success
    bool mayContinue = false;  // the program ended at the next file; a new run may skip that
};

/// A `file` process that is kept running and gets the names of one directory after another.
/// This saves a start of the program (about 2 ms) per directory.
///
/// The process reaches the files through our descriptor of their directory, by a path under
/// /proc. So nobody can exchange the directory, as if `file` were started in it. When the first
/// attempt to keep a process fails, there is no other. The process ends with this object. After a
/// fork of the host, parent and child each start a process of their own; so does a host that
/// changes its user or group.
class RunningFile {
public:
    /// Describes the files `names` of the directory open as `directory`. Empty when the
    /// caller must describe them by a run of their own: a name has a newline, no process can
    /// be kept, the process died, or this is the first request. (Many searches have only one,
    /// for which a process is not worth keeping.) No kept process runs then, as the
    /// limit on the number of processes may have no place for two.
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

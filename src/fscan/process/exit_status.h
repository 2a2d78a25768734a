#pragma once

namespace fscan {

/// What the program ends with; where several apply, the highest.
enum ExitStatus : int {
    STATUS_FOUND = 0,
    STATUS_NOTHING_FOUND = 1,
    STATUS_USAGE = 2,           ///< a wrong option or criteria, or no PATH: nothing was run
    STATUS_INCOMPLETE = 3,      ///< a PATH not searched, the system failed, or time ran out
    STATUS_FAILURE = 4,         ///< provider, cache, mount table, `file`, output or memory failed
    STATUS_COMMAND_FAILED = 5,  ///< a command that was run for matches failed
};

}  // namespace fscan

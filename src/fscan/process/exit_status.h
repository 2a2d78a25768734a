#pragma once

namespace fscan {

/// The result of a step, and in the end of the program, which exits with its number. Where
/// several apply, the highest one counts.
enum class [[nodiscard]] ExitStatus{
    found = 0,         nothingFound = 1,
    usage = 2,          ///< a wrong option or criteria, or no PATH: nothing was searched
    incomplete = 3,     ///< a PATH was not searched, the system failed, or time ran out
    failure = 4,        ///< provider, cache, mount table, `file`, output or memory failed
    commandFailed = 5,  ///< a command that was run for matches failed
};

/// The number that the process returns.
constexpr int exitCode(ExitStatus status) {
    return static_cast<int>(status);
}

}  // namespace fscan

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace fscan {

class Output;

/// Which mounted file systems are searched.
enum class DriveChoice { all, local, remote };

/// The command line, as given: texts are in the locale's encoding.
struct Options {
    std::vector<std::string> names;
    std::vector<std::string> criteria;
    std::vector<std::string> excludes;
    std::vector<std::string> fileSystems;
    std::vector<std::string> notFileSystems;
    std::vector<std::string> paths;
    std::optional<std::string> check;
    std::optional<std::string> debugLog;
    DriveChoice drives = DriveChoice::all;
    bool recurse = true;
    bool ignoreCase = false;
    bool allFileSystems = false;
    bool nullTerminated = false;
    bool longFormat = false;
    bool countOnly = false;
    bool listDrives = false;
};

/// Fills `options`. An exit status where the program is done with that: after
/// the help, the version, or an error message.
std::optional<int> parseOptions(int argc, char** argv, Options& options, Output& out);

}  // namespace fscan

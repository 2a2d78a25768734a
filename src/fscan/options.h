#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sort_order.h"

namespace fscan {

class Output;

/// Which mounted file systems are searched.
enum class DriveChoice { all, local, remote };

/// What is to be done with the cache instead of searching.
enum class CacheTask { none, status, compact, clear };

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
    std::optional<std::string> provider;
    std::optional<SortKey> sortKey;
    std::optional<std::string> cacheDirectory;
    std::optional<unsigned> timeoutMilliseconds;  ///< of each part of a search
    unsigned maximumAge = 600;                    ///< of cached answers, in seconds
    CacheTask cacheTask = CacheTask::none;
    DriveChoice drives = DriveChoice::all;
    bool recurse = true;
    bool ignoreCase = false;
    bool allFileSystems = false;
    bool nullTerminated = false;
    bool longFormat = false;
    bool countOnly = false;
    bool reverse = false;
    bool spill = false;
    bool listDrives = false;
    bool explain = false;
    bool statistics = false;
};

/// Fills `options`. An exit status where the program is done with that: after
/// the help, the version, or an error message.
std::optional<int> parseOptions(int argc, char** argv, Options& options, Output& out);

}  // namespace fscan

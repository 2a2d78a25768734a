#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "fscan/match/name_pattern.h"
#include "fscan/process/exit_status.h"
#include "fscan/sort/sort_order.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_query.h"

namespace fscanner {
class FsSettings;
}

namespace fscan {

class Output;

/// Which mounted file systems are searched.
enum class DriveChoice { all, local, remote };

/// How the paths of matches are written: below the PATH as it was given, absolute and
/// without links, or relative to the current directory.
enum class PathStyle { given, absolute, relative };

/// How matches are printed.
enum class OutputForm { plain, longer, json, jsonArray, csv };

/// What the matches of a sum are grouped by.
enum class SumBy { extension, directory, owner, kind, age, size };

/// Only on a terminal, always, or never.
enum class WhenToUse { automatic, always, never };

/// A command for each match, one for many, or one for each in the match's directory.
enum class CommandUse { forEach, forMany, inDirectory };

/// A task to do with the cache instead of searching.
enum class CacheTask { none, watch, status, check, compact, clear, forget };

/// The command line, as given: texts are in the locale's encoding.
struct Options {
    std::optional<std::string> pattern;  ///< the first word, if it is no PATH
    std::vector<std::string> names;
    std::vector<std::string> regexes;
    std::vector<std::string> pathGlobs;
    std::vector<std::string> pathRegexes;
    std::vector<std::string> types;
    Permissions permissions;
    std::vector<std::string> criteria;
    std::vector<std::string> excludes;
    std::vector<std::string> fileSystems;
    std::vector<std::string> notFileSystems;
    std::vector<std::string> paths;
    std::optional<std::string> check;
    std::optional<std::string> debugLog;
    std::optional<std::string> provider;
    std::optional<unsigned long long> larger;   ///< bytes
    std::optional<unsigned long long> smaller;  ///< bytes
    std::optional<SizeRange> size;
    std::optional<FileTime> newer;
    std::optional<FileTime> older;
    bool timesOfFiles = false;      ///< `newer` or `older` is a file's, to the nanosecond
    std::optional<unsigned> owner;  ///< user ID
    std::optional<unsigned> group;  ///< group ID
    bool empty = false;             ///< no bytes, or a directory without entries
    /// The conditions of --not, one in each: none of them may hold.
    std::vector<Options> negated;
    std::vector<SortKey> sortKeys;
    std::optional<unsigned long long> limit;   ///< of matches
    std::optional<SumBy> sumBy;                ///< sums are printed instead of matches
    std::optional<std::size_t> top;            ///< so many sums are printed at most
    std::optional<std::string> report;         ///< a page with all sums is written to this file
    std::vector<std::string> optionArguments;  ///< with --interactive: as given, but for words
    std::optional<std::string> formatTemplate;
    std::optional<std::vector<std::string>> command;  ///< to be run for the matches
    CommandUse commandUse = CommandUse::forEach;
    bool runsCommands() const { return command.has_value(); }
    CaseMode caseOfNames() const {
        return ignoreCase ? CaseMode::insensitive : CaseMode::sensitive;
    }
    /// The case mode of a PATTERN or a regular expression.
    CaseMode caseOf(const std::string& text, bool isRegex = false) const {
        return !ignoreCase && hasUpperCase(text, isRegex) ? CaseMode::sensitive
                                                          : CaseMode::insensitive;
    }
    bool findsDirectories() const { return (kinds & fscanner::FS_KIND_DIRECTORY) != 0; }
    std::optional<std::string> summaryFile;
    std::optional<std::string> cacheDirectory;
    std::string forgotten;                        ///< the tree to drop from the cache
    std::optional<unsigned> timeoutMilliseconds;  ///< of each part of a search
    unsigned threads = 32;                        ///< of a search, at most
    unsigned sumDepth = 0;                        ///< of the directories of sums; 0: not given
    unsigned maximumAge = 600;                    ///< of cached answers, in seconds
    bool verify = true;                           ///< compare cached trees with the disk
    CacheTask cacheTask = CacheTask::none;
    DriveChoice drives = DriveChoice::all;
    PathStyle pathStyle = PathStyle::given;
    OutputForm form = OutputForm::plain;
    WhenToUse color = WhenToUse::automatic;
    WhenToUse hyperlinks = WhenToUse::automatic;
    /// Bits of `fscanner::FsEntryKind`; after parsing the kinds that are searched for.
    unsigned kinds = 0;
    fscanner::FsDepthRange depth;
    bool interactive = false;
    bool kindsWereLeft = false;  ///< nobody asked for kinds
    bool allocated = false;      ///< sums are of allocated bytes
    bool executable = false;     ///< -t x, whose test is among the permissions
    bool followLinks = false;
    bool oneFileSystem = false;
    bool recurse = true;
    bool ignoreFiles = false;  ///< leave out what the rules of .gitignore and the like ignore
    bool noHidden = false;
    bool wait = false;  ///< for others who use the cache, however long
    bool ignoreCase = false;
    bool allFileSystems = false;
    bool nullTerminated = false;
    bool countOnly = false;
    bool exactSizes = false;
    bool withTypes = false;
    bool links = false;
    bool errors = false;
    bool strict = false;
    bool quiet = false;
    bool reverse = false;
    bool spill = false;
    bool listDrives = false;
    bool explain = false;
    bool statistics = false;
    bool summary = false;  ///< as JSON
};

/// Fills `options`. Returns an exit status where the program is to end: after the help, the
/// version, or an error message.
std::optional<ExitStatus> parseOptions(int argc, char** argv, Options& options, Output& out);

/// The settings of the configuration files. The first call reads them, and tells of errors
/// in them.
const fscanner::FsSettings& settings();

}  // namespace fscan

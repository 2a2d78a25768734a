#include "fscan/options/option_groups.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <charconv>
#include <cstring>

#include "fscan/options/options.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

constexpr unsigned kMostThreads = 256;

/// As milliseconds, it fits into 31 bits.
constexpr unsigned kGreatestSeconds = 2'000'000;
/// The cache subtracts it from the time of day, which must not become negative.
constexpr unsigned kGreatestAge = 1'000'000'000;

/// A moment, or a file whose modification time is meant. A text that could be both is a moment.
AddedOption addMoment(OptionTable& table, const char* flags, Options& options,
                      std::optional<FileTime>& moment, const char* help) {
    return table.addValue(
        flags, "WHEN|FILE",
        [flags, &options, &moment](const std::string& text) {
            if (const auto told = parseMoment(text, std::time(nullptr))) {
                moment = FileTime{*told, 0};
                return;
            }
            struct stat info {};
            if (stat(text.c_str(), &info) != 0)
                throw CLI::ValidationError(std::string(flags).substr(0, std::strcspn(flags, ",")),
                                           "not a duration such as 2h, not a date such as "
                                           "2026-11-21 07:30, and no file");
            moment = FileTime{info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
            options.timesOfFiles = true;
        },
        help);
}

/// The number that the whole text is; nothing for another text, or one that is too large.
template <class Number>
std::optional<Number> numberOf(const std::string& text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || stop != end || error != std::errc()) return std::nullopt;
    return number;
}

void addPermissions(const Permissions& tests, Options& options) {
    auto& [stored, others] = options.permissions;
    stored.insert(stored.end(), tests.stored.begin(), tests.stored.end());
    others.insert(others.end(), tests.others.begin(), tests.others.end());
}

/// Takes a kind of -t: those of entries are or-ed, and a file that can be run is a further
/// condition.
void addKind(char letter, Options& options) {
    static const std::map<char, unsigned> kinds = {{'f', fscanner::FS_KIND_FILE},
                                                   {'d', fscanner::FS_KIND_DIRECTORY},
                                                   {'l', fscanner::FS_KIND_LINK},
                                                   {'p', fscanner::FS_KIND_PIPE},
                                                   {'s', fscanner::FS_KIND_SOCKET},
                                                   {'b', fscanner::FS_KIND_BLOCK_DEVICE},
                                                   {'c', fscanner::FS_KIND_CHARACTER_DEVICE}};
    if (letter == 'x') addPermissions(*parsePermissions("x"), options);
    if (letter == 'x' || letter == 'e') {
        (letter == 'x' ? options.executable : options.empty) = true;
        return;
    }
    const auto kind = kinds.find(letter);
    if (kind == kinds.end())
        throw CLI::ValidationError("--type", "no kind is called that; known are f d l p s b c x e");
    options.kinds |= kind->second;
}

/// One letter, or several with commas between.
bool isListOfKinds(const std::string& word) {
    for (std::size_t i = 1; i < word.size(); i += 2)
        if (word[i] != ',') return false;
    return word.size() % 2 == 1;
}

AddedOption addRegexes(OptionTable& table, const char* flags, std::vector<std::string>& texts,
                       const char* help) {
    return table.addTexts(
        flags, "REGEX",
        [&texts, flags](const std::string& text) {
            std::string error;
            if (!NamePattern::regex(text, CaseMode::sensitive, error))
                throw CLI::ValidationError(std::strstr(flags, "--"), error);
            texts.push_back(text);
        },
        help);
}

void addNames(OptionTable& table, Options& options, const char* group) {
    table
        .addTexts(
            "-n,--name", "GLOB",
            [&options](const std::string& glob) {
                std::string error;
                if (!NamePattern::glob(glob, CaseMode::sensitive, error))
                    throw CLI::ValidationError("--name", error);
                options.names.push_back(glob);
            },
            "The whole name matches (*, ?, [a-z], {a,b}); several are or-ed")
        .group(group);
    addRegexes(table, "-r,--regex", options.regexes,
               "A part of the name matches the regular expression; or-ed with -n")
        .group(group);
    table
        .addTexts(
            "--path", "GLOB",
            [&options](const std::string& glob) {
                if (!wholePathGlob(glob))
                    throw CLI::ValidationError("--path", "the current directory is gone");
                options.pathGlobs.push_back(glob);
            },
            "The whole path matches, from / or ./ on, or its end; * matches / too; several are "
            "or-ed")
        .group(group);
    addRegexes(table, "--path-regex", options.pathRegexes,
               "A part of the whole path, from / on, matches; or-ed with --path")
        .group(group);
    table
        .addTexts(
            "-t,--type", "KIND|WORD",
            [&options](const std::string& word) {
                if (isListOfKinds(word)) {
                    for (std::size_t i = 0; i < word.size(); i += 2) addKind(word[i], options);
                    return;
                }
                // Criteria cannot express such a text.
                if (word.empty() || word.find('"') != word.npos)
                    throw CLI::ValidationError("--type", "not a word such as ELF, ASCII or PNG");
                options.types.push_back(word);
            },
            "A kind: f file, d directory, l link, p pipe, s socket, b or c device, x executable, e "
            "empty, several as f,d; or a "
            "word of the file program's description: ELF, PNG; several of each are or-ed")
        .group(group);
}

/// An option that takes a number of levels.
AddedOption addLevels(OptionTable& table, const char* flag, unsigned& levels, const char* help) {
    return table.addValue(
        flag, "N",
        [flag, &levels](const std::string& text) {
            levels = numberOf<unsigned>(text).value_or(0);
            if (levels == 0) throw CLI::ValidationError(flag, "not a number from 1 on");
        },
        help);
}

std::optional<unsigned> userId(const std::string& text) {
    if (const passwd* const user = getpwnam(text.c_str())) return user->pw_uid;
    return numberOf<unsigned>(text);
}

std::optional<unsigned> groupId(const std::string& text) {
    if (const ::group* const known = getgrnam(text.c_str())) return known->gr_gid;
    return numberOf<unsigned>(text);
}

void addFacts(OptionTable& table, Options& options, const char* group) {
    table
        .addValue(
            "--size", "SIZE|RANGE",
            [&options](const std::string& text) {
                options.size = parseSizeRange(text);
                if (!options.size)
                    throw CLI::ValidationError("--size",
                                               "not a size or range such as 4096, 1k..2M, 1G..");
            },
            "So many bytes exactly, or from the first to the second: 4096, 1.5k..2M, 1G.., ..10k")
        .group(group);
    addSize(table, "--larger", options.larger, "Larger than that, in bytes: 4096, 10k, 1.5M, 2GB")
        .group(group);
    addSize(table, "--smaller", options.smaller, "Smaller than that").group(group);
    table.addFlag("--empty", options.empty, "No bytes; with -t d, no entries").group(group);
    addMoment(table, "--newer,--changed-within", options, options.newer,
              "Modified within that time (2h, 3w), after that date, or after that file")
        .group(group);
    addMoment(table, "--older,--changed-before", options, options.older, "Modified before that")
        .group(group);
    table
        .addTexts(
            "--perm", "BITS",
            [&options](const std::string& text) {
                const auto tests = parsePermissions(text);
                if (!tests)
                    throw CLI::ValidationError("--perm",
                                               "not permissions such as x, u+w, u+s, 644 or =644");
                addPermissions(*tests, options);
            },
            "Permissions: x (of anyone), u+w (of the owner), u+w,o+r (both), 4000 (these bits), "
            "=644 "
            "(these alone)")
        .group(group);
    table
        .addValue(
            "--owner", "USER",
            [&options](const std::string& text) {
                options.owner = userId(text);
                if (!options.owner) throw CLI::ValidationError("--owner", "no user " + text);
            },
            "Owned by that user: a name or a number")
        .group(group);
    table
        .addValue(
            "--group", "GROUP",
            [&options](const std::string& text) {
                options.group = groupId(text);
                if (!options.group) throw CLI::ValidationError("--group", "no group " + text);
            },
            "Of that group: a name or a number")
        .group(group);
    table.addFlag("--links", options.links, "Only symbolic links").group(group);
}

void addCache(OptionTable& table, Options& options, const char* group) {
    AddedOption age = addDuration(
                          table, "--max-age", 0, kGreatestAge,
                          [&options](unsigned seconds) {
                              options.maximumAge = seconds;
                              options.verify = false;
                          },
                          "Take an answer from the cache that is up to that old, unchecked")
                          .group(group);
    table
        .addFlag(
            "--fresh", [&options] { options.maximumAge = 0; },
            "Scan again, however young the cache is; same as --max-age 0")
        .excludes(age)
        .group(group);
    addText(table, "--cache-dir", "DIR", options.cacheDirectory, "Where the cache is").group(group);
    table
        .addFlag("--wait", options.wait,
                 "Wait for other users of the cache; default: go on without it after a second")
        .group(group);
}

}  // namespace

void addSelection(OptionTable& table, Options& options) {
    const char* group = "What to find";
    addNames(table, options, group);
    addFacts(table, options, group);
    addTexts(table, "-w,--where", "CRITERIA", options.criteria,
             "Criteria, such as '[SIZE] > 4096'; and-ed with all others")
        .group(group);
    table.addFlag("-i,--ignore-case", options.ignoreCase, "Upper and lower case are the same")
        .group(group);
}

void addPlaces(OptionTable& table, Options& options) {
    const char* group = "Where to look";
    addTexts(table, "-x,--exclude", "PATH", options.excludes,
             "Leave out paths that --path would match, and all below them: node_modules, ./old, "
             "/srv/tmp*")
        .group(group);
    table
        .addFlag("--ignore", options.ignoreFiles,
                 "Leave out what .gitignore, .ignore and .git/info/exclude ignore, and .git")
        .group(group);
    table
        .addFlag("--no-hidden", options.noHidden,
                 "Leave out names that begin with a dot, and all below such directories")
        .group(group);
    table
        .addFlag(
            "--no-recurse", [&options] { options.recurse = false; },
            "Only the directories' own files")
        .group(group);
    addLevels(table, "--max-depth", options.depth.most,
              "So many levels at most: 1 is what lies in the PATHs themselves")
        .group(group);
    addLevels(table, "--min-depth", options.depth.least, "So many levels at least").group(group);
    table
        .addFlag("-L,--follow", options.followLinks,
                 "Follow symbolic links: each counts as what it leads to")
        .group(group);
    table
        .addFlag("--one-file-system", options.oneFileSystem, "Stay on the file system of each PATH")
        .group(group);
    addTexts(table, "--fs", "TYPE", options.fileSystems, "Only file systems of this type")
        .group(group);
    addTexts(table, "--not-fs", "TYPE", options.notFileSystems, "No file systems of this type")
        .group(group);
    table
        .addFlag("--all-fs", options.allFileSystems,
                 "Also search proc, sysfs and the like; default: only where a PATH is on one")
        .group(group);
    addChoice(table, "--local", options.drives, DriveChoice::local, "Only local drives")
        .group(group);
    addChoice(table, "--remote", options.drives, DriveChoice::remote, "Only remote drives")
        .group(group);
}

void addProvider(OptionTable& table, Options& options) {
    const char* group = "How to search";
    AddedOption provider = addText(table, "--provider", "NAME", options.provider,
                                   "Use this provider instead of that of the settings")
                               .group(group);
    table
        .addFlag(
            "--no-cache", [&options] { options.provider = "provider_direct"; },
            "Search without a cache; same as --provider provider_direct")
        .excludes(provider)
        .group(group);
    addCache(table, options, group);
    addDuration(
        table, "--timeout", 1, kGreatestSeconds,
        [&options](unsigned seconds) { options.timeoutMilliseconds = seconds * 1000; },
        "End each scan, and the reading of the cache, after that long")
        .group(group);
    table
        .addValue(
            "--threads", "N",
            [&options](const std::string& text) {
                options.threads = numberOf<unsigned>(text).value_or(0);
                if (options.threads == 0 || options.threads > kMostThreads)
                    throw CLI::ValidationError("--threads", "not a number from 1 to 256");
            },
            "Read directories by so many threads at most; default 32, of which few are used unless "
            "the disk is slow")
        .group(group);
}

namespace {

const std::map<std::string, WhenToUse> kWhens = {
    {"auto", WhenToUse::automatic}, {"always", WhenToUse::always}, {"never", WhenToUse::never}};

void addForms(OptionTable& table, Options& options, const char* group) {
    addChoice(table, "-l,--long", options.form, OutputForm::longer,
              "Attributes, size, modification time, path")
        .group(group);
    table.addFlag("--bytes", options.exactSizes, "Sizes in bytes, not as 1.5M").group(group);
    addChoice(table, "--json", options.form, OutputForm::json, "One JSON object a line")
        .group(group);
    addChoice(table, "--json-array", options.form, OutputForm::jsonArray, "One JSON array of them")
        .group(group);
    addChoice(table, "--csv", options.form, OutputForm::csv,
              "Comma-separated values, with a header")
        .group(group);
    table
        .addFlag("--with-type", options.withTypes,
                 "Add the file program's description to JSON and CSV")
        .group(group);
    addText(table, "--format", "TEMPLATE", options.formatTemplate,
            "A line such as '{size} {path}'; the manual lists the fields")
        .group(group);
    table.addFlag("-c,--count", options.countOnly, "Only the number of matches").group(group);
    table.addFlag("-0,--null", options.nullTerminated, "End each path with NUL, not newline")
        .group(group);
}

void addStyles(OptionTable& table, Options& options, const char* group) {
    addChoice(table, "--absolute", options.pathStyle, PathStyle::absolute,
              "Absolute paths, without links")
        .group(group);
    addChoice(table, "--relative", options.pathStyle, PathStyle::relative,
              "Paths relative to the current directory")
        .group(group);
    addWord<WhenToUse>(
        table, "--color", "auto|always|never", kWhens,
        [&options](WhenToUse when) { options.color = when; },
        "Colours of LS_COLORS; auto: on a terminal")
        .group(group);
    addWord<WhenToUse>(
        table, "--hyperlinks", "auto|always|never", kWhens,
        [&options](WhenToUse when) { options.hyperlinks = when; },
        "Paths that can be clicked, on terminals that know them")
        .group(group);
}

void addSortKeys(const std::string& text, const std::map<std::string, SortKey>& known,
                 std::vector<SortKey>& keys) {
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        const auto key = known.find(text.substr(at, end - at));
        if (key == known.end())
            throw CLI::ValidationError("--sort", "not one of modified, name, path, pathname, size");
        keys.push_back(key->second);
        at = end + 1;
    }
}

void addSorting(OptionTable& table, Options& options, const char* group) {
    static const std::map<std::string, SortKey> keys = {{"path", SortKey::path},
                                                        {"name", SortKey::name},
                                                        {"pathname", SortKey::pathname},
                                                        {"size", SortKey::size},
                                                        {"modified", SortKey::modified}};
    AddedOption sort =
        table
            .addTexts(
                "--sort", "path|name|pathname|size|modified",
                [&options](const std::string& text) { addSortKeys(text, keys, options.sortKeys); },
                "Sort by this, and by others given behind a comma; ties by pathname")
            .group(group);
    table.addFlag("--reverse", options.reverse, "Sort in reverse order").needs(sort).group(group);
    table.addFlag("--spill", options.spill, "Sort in a temporary file, even if memory would do")
        .needs(sort)
        .group(group);
    table
        .addValue(
            "--limit", "N",
            [&options](const std::string& text) {
                options.limit = numberOf<unsigned long long>(text);
                if (options.limit.value_or(0) == 0)
                    throw CLI::ValidationError("--limit", "not a number from 1 on");
            },
            "Stop after so many matches")
        .group(group);
}

void addSums(OptionTable& table, Options& options, const char* group) {
    static const std::map<std::string, SumBy> groups = {
        {"ext", SumBy::extension}, {"dir", SumBy::directory}, {"owner", SumBy::owner},
        {"kind", SumBy::kind},     {"age", SumBy::age},       {"size", SumBy::size}};
    AddedOption sum = addWord<SumBy>(
                          table, "--sum", "ext|dir|owner|kind|age|size", groups,
                          [&options](SumBy by) { options.sumBy = by; },
                          "Instead of the matches, their number and bytes in groups")
                          .group(group);
    addLevels(table, "--depth", options.sumDepth,
              "With --sum dir: directories of so many levels; default 1")
        .needs(sum)
        .group(group);
    table
        .addValue(
            "--top", "N",
            [&options](const std::string& text) {
                options.top = numberOf<std::size_t>(text);
                if (options.top.value_or(0) == 0)
                    throw CLI::ValidationError("--top", "not a number from 1 on");
            },
            "With --sum: so many groups at most, the largest")
        .needs(sum)
        .group(group);
    table
        .addFlag("--allocated", options.allocated,
                 "With --sum and --report: bytes on the disk; default: the sizes of the files")
        .group(group);
    addText(table, "--report", "FILE", options.report,
            "Instead of the matches, a page with a map of their sizes and all sums")
        .group(group);
}

AddedOption addCacheTask(OptionTable& table, Options& options, const char* flag, CacheTask task,
                         const char* help) {
    return addChoice(table, flag, options.cacheTask, task, help);
}

}  // namespace

void addOutput(OptionTable& table, Options& options) {
    const char* group = "What to print";
    addForms(table, options, group);
    addSums(table, options, group);
    addStyles(table, options, group);
    addSorting(table, options, group);
}

void addReports(OptionTable& table, Options& options) {
    const char* group = "Reports on standard error";
    table.addFlag("--errors", options.errors, "Name each directory that could not be read")
        .group(group);
    table
        .addFlag("--strict", options.strict,
                 "Exit with 3 if a directory could not be read, or a file was left out")
        .group(group);
    table
        .addFlag("-q,--quiet", options.quiet,
                 "No progress, no closing line, no count of unread directories")
        .group(group);
    table
        .addFlag("--stats", options.statistics,
                 "At the end: matches, what was walked, time, where from")
        .group(group);
    table
        .addValue(
            "--summary", "json",
            [&options](const std::string& text) {
                if (text != "json") throw CLI::ValidationError("--summary", "not json");
                options.summary = true;
            },
            "At the end: how complete the answer is, as a JSON object")
        .group(group);
    addText(table, "--summary-file", "FILE", options.summaryFile,
            "Write the summary to FILE instead")
        .group(group);
}

namespace {

/// A limited table knows too little for them, and refuses them.
void addHelp(OptionTable& table, const char* group) {
    if (table.isLimited()) return;
    table.app()
        .set_version_flag("--version", std::string("fscan ") + fscanner::fsVersion(),
                          "Print the version")
        ->group(group);
    table.app().set_help_flag("-h,--help", "Print this help")->group(group);
}

}  // namespace

void addOthers(OptionTable& table, Options& options) {
    const char* group = "Instead of searching";
    table
        .addFlag("-I,--interactive", options.interactive,
                 "Search on the whole screen as you type, and print what you choose")
        .group(group);
    table.addFlag("--drives", options.listDrives, "List the drives: directory, type, file system")
        .group(group);
    addText(table, "--check", "CRITERIA", options.check,
            "Check the criteria, and show how it is compiled")
        .group(group);
    table.addFlag("--explain", options.explain, "Show how the search would be run").group(group);
    addCacheTask(table, options, "--watch", CacheTask::watch,
                 "Keep the trees of the PATHs current in the cache, until stopped")
        .group(group);
    addCacheTask(table, options, "--cache-status", CacheTask::status,
                 "Show where the cache is and what it holds")
        .group(group);
    addCacheTask(table, options, "--cache-check", CacheTask::check,
                 "Compare the cache's files with their checksums")
        .group(group);
    addCacheTask(table, options, "--cache-compact", CacheTask::compact,
                 "Release the space of removed records, if there are many")
        .group(group);
    table
        .addValue(
            "--cache-forget", "PATH",
            [&options](const std::string& path) {
                options.cacheTask = CacheTask::forget;
                options.forgotten = path;
            },
            "Drop the tree of that directory from the cache")
        .group(group);
    addCacheTask(table, options, "--cache-clear", CacheTask::clear, "Delete the cache's files")
        .group(group);
    addHelp(table, group);
    addText(table, "--debug-log", "FILE", options.debugLog, "Write the library's debug log to FILE")
        .group("Finding faults");
}

void groupMostUsed(CLI::App& app) {
    // The first option of all is among them, so that their group comes first.
    for (const char* name : {"--name", "--type", "--larger", "--newer", "--where", "--ignore-case",
                             "--exclude", "--max-depth", "--long", "--exec"})
        app.get_option(name)->group("Most used");
}

// ---- Values -----------------------------------------------------------------

AddedOption addText(OptionTable& table, const char* flags, const char* type,
                    std::optional<std::string>& value, const char* help) {
    return table.addValue(
        flags, type, [&value](const std::string& text) { value = text; }, help);
}

AddedOption addTexts(OptionTable& table, const char* flags, const char* type,
                     std::vector<std::string>& values, const char* help) {
    return table.addTexts(
        flags, type, [&values](const std::string& text) { values.push_back(text); }, help);
}

AddedOption addDuration(OptionTable& table, const char* flag, unsigned least, unsigned limit,
                        const std::function<void(unsigned)>& take, const char* help) {
    return table.addValue(
        flag, "DURATION",
        [flag, least, limit, take](const std::string& text) {
            const std::optional<unsigned> seconds = parseDuration(text, limit);
            if (!seconds || *seconds < least)
                throw CLI::ValidationError(flag, "not a duration such as 90s, 10m, 2h, 1d");
            take(*seconds);
        },
        help);
}

AddedOption addSize(OptionTable& table, const char* flag, std::optional<unsigned long long>& bytes,
                    const char* help) {
    return table.addValue(
        flag, "SIZE",
        [flag, &bytes](const std::string& text) {
            bytes = parseSize(text);
            if (!bytes) throw CLI::ValidationError(flag, "not a size such as 4096, 10k, 5M, 2G");
        },
        help);
}

}  // namespace fscan

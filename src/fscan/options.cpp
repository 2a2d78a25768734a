#include "options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string_view>

#include "duration.h"
#include "exit_status.h"
#include "fscanner/fs/fs_inspect.h"
#include "messages.h"
#include "output.h"
#include "word_list.h"

namespace fscan {

namespace {

constexpr const char* description =
    R"(fscan finds files by name and by criteria over name, size and attributes.

Examples:
  fscan -n '*.h' -n '*.hpp' /usr/include      headers, by name
  fscan -w '[SIZE] > 1000000' -l /var         large files, with size and time
  fscan -n '*.log' -x '*/archive' -0 | xargs -0 gzip
)";

constexpr const char* exitStatuses =
    R"(Exit status: 0 something found, 1 nothing found, 2 wrong option, criteria or
PATH, 3 the answer is incomplete, 4 the provider, the cache, the mount table or the
output failed.)";

/// An option with a value of its own at each use. The values are taken as they
/// stand: converting ones would read "{}" and "[a,b]" as lists.
CLI::Option* addTexts(CLI::App& app, const std::string& flags, std::vector<std::string>& values,
                      const std::string& help) {
    return app
        .add_option(
            flags,
            [&values](const std::vector<std::string>& results) {
                values = results;
                return true;
            },
            help)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
}

CLI::Option* addText(CLI::App& app, const std::string& flags, std::optional<std::string>& value,
                     const std::string& help) {
    return app.add_option(
        flags,
        [&value](const std::vector<std::string>& results) {
            value = results.front();
            return true;
        },
        help);
}

void addSelection(CLI::App& app, Options& options) {
    const char* group = "What to find";
    addTexts(app, "-n,--name", options.names, "The file's name matches (*, ?); several are or-ed")
        ->type_name("GLOB")
        ->group(group);
    addTexts(app, "-w,--where", options.criteria,
             "Criteria, such as '[SIZE] > 4096'; and-ed with all others")
        ->type_name("CRITERIA")
        ->group(group);
    app.add_flag("-i,--ignore-case", options.ignoreCase, "Upper and lower case are the same")
        ->group(group);
}

CLI::Option* addDriveChoice(CLI::App& app, Options& options, const std::string& flag,
                            DriveChoice choice, const std::string& help) {
    return app.add_flag_function(
        flag,
        [&options, flag, choice](auto) {
            if (options.drives != DriveChoice::all && options.drives != choice)
                throw CLI::ValidationError(flag, "not with the other group of drives");
            options.drives = choice;
        },
        help);
}

void addPlaces(CLI::App& app, Options& options) {
    const char* group = "Where to look";
    addTexts(app, "-x,--exclude", options.excludes,
             "Leave this path out, with what is below it; may hold wildcards")
        ->type_name("PATH")
        ->group(group);
    app.add_flag_function(
           "--no-recurse", [&options](auto) { options.recurse = false; },
           "Only the directories' own files")
        ->group(group);
    addTexts(app, "--fs", options.fileSystems, "Only file systems of this type")
        ->type_name("TYPE")
        ->group(group);
    addTexts(app, "--not-fs", options.notFileSystems, "No file systems of this type")
        ->type_name("TYPE")
        ->group(group);
    app.add_flag("--all-fs", options.allFileSystems,
                 "Also proc, sysfs and their like; otherwise only by a PATH on one")
        ->group(group);
    addDriveChoice(app, options, "--local", DriveChoice::local, "Only local drives")->group(group);
    addDriveChoice(app, options, "--remote", DriveChoice::remote, "Only remote drives")
        ->group(group);
}

void addSorting(CLI::App& app, Options& options, const char* group) {
    static const std::map<std::string, SortKey> keys = {{"path", SortKey::path},
                                                        {"name", SortKey::name},
                                                        {"pathname", SortKey::pathname},
                                                        {"size", SortKey::size}};
    CLI::Option* sort = app.add_option(
        "--sort",
        [&options](const std::vector<std::string>& results) {
            const auto found = keys.find(results.front());
            if (found == keys.end()) return false;
            options.sortKey = found->second;
            return true;
        },
        "Sort by this; ties by pathname");
    sort->type_name("path|name|pathname|size")->group(group);
    app.add_flag("--reverse", options.reverse, "Sort the other way round")
        ->needs(sort)
        ->group(group);
    app.add_flag("--spill", options.spill, "Sort in a temporary file, however few there are")
        ->needs(sort)
        ->group(group);
}

/// Milliseconds of it fit into 31 bits.
constexpr unsigned greatestSeconds = 2'000'000;
/// The cache subtracts it from the time of day, and must not get below 0.
constexpr unsigned greatestAge = 1'000'000'000;

CLI::Option* addDuration(CLI::App& app, const char* flag, unsigned least, unsigned limit,
                         const std::function<void(unsigned)>& take, const std::string& help) {
    return app
        .add_option(
            flag,
            [flag, least, limit, take](const std::vector<std::string>& results) {
                const std::optional<unsigned> seconds = parseDuration(results.front(), limit);
                if (!seconds || *seconds < least)
                    throw CLI::ValidationError(flag, "not a duration such as 90s, 10m, 2h, 1d");
                take(*seconds);
                return true;
            },
            help)
        ->type_name("DURATION");
}

void addCache(CLI::App& app, Options& options, const char* group) {
    CLI::Option* age = addDuration(
                           app, "--max-age", 0, greatestAge,
                           [&options](unsigned seconds) { options.maximumAge = seconds; },
                           "Take no answer from the cache that is older; 10m unless given")
                           ->group(group);
    app.add_flag_function(
           "--fresh", [&options](auto) { options.maximumAge = 0; },
           "Scan anew, like --max-age 0; a scan of the same second still counts")
        ->excludes(age)
        ->group(group);
    addText(app, "--cache-dir", options.cacheDirectory, "Where the cache is")
        ->type_name("DIR")
        ->group(group);
}

void addProvider(CLI::App& app, Options& options) {
    const char* group = "How to search";
    CLI::Option* provider =
        addText(app, "--provider", options.provider, "Ask this provider, not provider_cache")
            ->type_name("NAME")
            ->group(group);
    app.add_flag_function(
           "--no-cache", [&options](auto) { options.provider = "provider_direct"; },
           "Search the file systems themselves, like --provider provider_direct")
        ->excludes(provider)
        ->group(group);
    addCache(app, options, group);
    addDuration(
        app, "--timeout", 1, greatestSeconds,
        [&options](unsigned seconds) { options.timeoutMilliseconds = seconds * 1000; },
        "End each scan, and the reading of the cache, after that long")
        ->group(group);
}

void addOutput(CLI::App& app, Options& options) {
    const char* group = "What to print";
    app.add_flag("-l,--long", options.longFormat, "Attributes, size, modification time, path")
        ->group(group);
    app.add_flag("-c,--count", options.countOnly, "Only the number of matches")->group(group);
    app.add_flag("-0,--null", options.nullTerminated, "End each path with NUL, not newline")
        ->group(group);
    app.add_flag("--stats", options.statistics,
                 "Then on standard error: matches, what was walked, time, where from")
        ->group(group);
    addSorting(app, options, group);
}

CLI::Option* addCacheTask(CLI::App& app, Options& options, const std::string& flag, CacheTask task,
                          const std::string& help) {
    return app.add_flag_function(
        flag,
        [&options, flag, task](auto) {
            if (options.cacheTask != CacheTask::none && options.cacheTask != task)
                throw CLI::ValidationError(flag, "one thing at a time with the cache");
            options.cacheTask = task;
        },
        help);
}

void addOthers(CLI::App& app, Options& options) {
    const char* group = "Instead of searching";
    app.add_flag("--drives", options.listDrives, "List the drives: directory, type, file system")
        ->group(group);
    addText(app, "--check", options.check, "Say whether the criteria compiles, and to what")
        ->type_name("CRITERIA")
        ->group(group);
    app.add_flag("--explain", options.explain, "Tell how the search would be run")->group(group);
    addCacheTask(app, options, "--cache-status", CacheTask::status,
                 "Tell where the cache is and what it holds")
        ->group(group);
    addCacheTask(app, options, "--cache-compact", CacheTask::compact,
                 "Give the space of removed records back, if there are many")
        ->group(group);
    addCacheTask(app, options, "--cache-clear", CacheTask::clear, "Delete the cache's files")
        ->group(group);
    app.set_version_flag("--version", std::string("fscan ") + fscanner::fsVersion(),
                         "Print the version")
        ->group(group);
    app.set_help_flag("-h,--help", "Print this help")->group(group);
    addText(app, "--debug-log", options.debugLog, "Write the library's debug log to FILE")
        ->type_name("FILE")
        ->group("Finding faults");
}

std::string_view firstLine(std::string_view text) {
    return text.substr(0, text.find('\n'));
}

/// The help, with the usage of arguments that CLI11 does not know about.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(28); }
    std::string make_usage(const CLI::App*, std::string) const override {
        return "Usage: fscan [OPTIONS] [PATH...]\n"
               "PATH is a directory to search; default: the current one. It may begin with\n"
               "a drive group: $local::PATH, $remote::PATH, $other::PATH, $all::PATH.\n\n";
    }
    std::string make_group(std::string group, bool positional,
                           std::vector<const CLI::Option*> options) const override {
        // Its own begins and ends with an empty line.
        return Formatter::make_group(group, positional, options).substr(1);
    }
};

/// Takes what is no option as PATHs. They are no positionals of CLI11, which
/// would read "[a,b]" as a list.
void takePaths(const CLI::App& app, std::vector<std::string>& paths) {
    bool dashesSeen = false;
    for (std::string& argument : app.remaining()) {
        if (!dashesSeen && argument == "--") {
            dashesSeen = true;
        } else if (!dashesSeen && argument.size() > 1 && argument.starts_with('-')) {
            throw CLI::ParseError("unknown option " + argument, CLI::ExitCodes::ExtrasError);
        } else {
            paths.push_back(std::move(argument));
        }
    }
}

/// CLI11 stops reading at "++".
void refuseTerminator(int argc, char** argv) {
    for (const std::string_view argument : std::span(argv, static_cast<std::size_t>(argc))) {
        if (argument == "--") return;
        if (argument == "++")
            throw CLI::ParseError("++ must follow -- or be written ./++",
                                  CLI::ExitCodes::ExtrasError);
    }
}

}  // namespace

std::optional<int> parseOptions(int argc, char** argv, Options& options, Output& out) {
    CLI::App app(description, "fscan");
    app.formatter(std::make_shared<HelpFormatter>());
    app.allow_extras();
    app.footer(exitStatuses);
    addSelection(app, options);
    addPlaces(app, options);
    addProvider(app, options);
    addOutput(app, options);
    addOthers(app, options);
    const CLI::Option* words = app.add_flag("--list-words")->group("");  // for completions
    try {
        refuseTerminator(argc, argv);
        app.parse(argc, argv);
        takePaths(app, options.paths);
        if (words->count() == 0) return std::nullopt;
        listWords(app, out);
    } catch (const CLI::CallForHelp&) {
        out.write(app.help());
    } catch (const CLI::CallForVersion& version) {
        out.write(version.what() + std::string("\n"));
    } catch (const CLI::ParseError& error) {
        complain(fmt::format("{}; see fscan --help", firstLine(error.what())));
        return STATUS_USAGE;
    }
    return STATUS_FOUND;
}

}  // namespace fscan

// The options that say what becomes of the matches, and what is told besides.

#include <charconv>

#include "fscan/options/option_values.h"
#include "fscan/options/options.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

const std::map<std::string, WhenToUse> whens = {
    {"auto", WhenToUse::automatic}, {"always", WhenToUse::always}, {"never", WhenToUse::never}};

void addForms(CLI::App& app, Options& options, const char* group) {
    addChoice(app, "-l,--long", options.form, OutputForm::longer,
              "Attributes, size, modification time, path")
        ->group(group);
    app.add_flag("--bytes", options.exactSizes, "Sizes in bytes, not as 1.5M")->group(group);
    addChoice(app, "--json", options.form, OutputForm::json, "One JSON object a line")
        ->group(group);
    addChoice(app, "--json-array", options.form, OutputForm::jsonArray, "One JSON array of them")
        ->group(group);
    addChoice(app, "--csv", options.form, OutputForm::csv, "Comma-separated values, with a header")
        ->group(group);
    app.add_flag("--with-type", options.withTypes,
                 "In JSON and CSV also what the file program says")
        ->group(group);
    addText(app, "--format", "TEMPLATE", options.formatTemplate,
            "A line such as '{size} {path}'; the manual lists the fields")
        ->group(group);
    app.add_flag("-c,--count", options.countOnly, "Only the number of matches")->group(group);
    app.add_flag("-0,--null", options.nullTerminated, "End each path with NUL, not newline")
        ->group(group);
}

void addStyles(CLI::App& app, Options& options, const char* group) {
    addChoice(app, "--absolute", options.pathStyle, PathStyle::absolute,
              "Whole paths, without links")
        ->group(group);
    addChoice(app, "--relative", options.pathStyle, PathStyle::relative,
              "Paths from the current directory on")
        ->group(group);
    addWord<WhenToUse>(
        app, "--color", "auto|always|never", whens,
        [&options](WhenToUse when) { options.color = when; },
        "Colours of LS_COLORS; auto: on a terminal")
        ->group(group);
    addWord<WhenToUse>(
        app, "--hyperlinks", "auto|always|never", whens,
        [&options](WhenToUse when) { options.hyperlinks = when; },
        "Paths that can be clicked, on terminals that know them")
        ->group(group);
}

void addSorting(CLI::App& app, Options& options, const char* group) {
    static const std::map<std::string, SortKey> keys = {{"path", SortKey::path},
                                                        {"name", SortKey::name},
                                                        {"pathname", SortKey::pathname},
                                                        {"size", SortKey::size}};
    CLI::Option* sort =
        addWord<SortKey>(
            app, "--sort", "path|name|pathname|size", keys,
            [&options](SortKey key) { options.sortKey = key; }, "Sort by this; ties by pathname")
            ->group(group);
    app.add_flag("--reverse", options.reverse, "Sort the other way round")
        ->needs(sort)
        ->group(group);
    app.add_flag("--spill", options.spill, "Sort in a temporary file, however few there are")
        ->needs(sort)
        ->group(group);
    addValue(
        app, "--limit", "N",
        [&options](const std::string& text) {
            unsigned long long limit = 0;
            const char* const end = text.data() + text.size();
            const auto [stop, error] = std::from_chars(text.data(), end, limit);
            if (text.empty() || stop != end || error != std::errc() || limit == 0)
                throw CLI::ValidationError("--limit", "not a number from 1 on");
            options.limit = limit;
        },
        "End after so many matches")
        ->group(group);
}

CLI::Option* addCacheTask(CLI::App& app, Options& options, const std::string& flag, CacheTask task,
                          const std::string& help) {
    return addChoice(app, flag, options.cacheTask, task, help);
}

}  // namespace

void addOutput(CLI::App& app, Options& options) {
    const char* group = "What to print";
    addForms(app, options, group);
    addStyles(app, options, group);
    addSorting(app, options, group);
}

void addReports(CLI::App& app, Options& options) {
    const char* group = "What to tell besides, on standard error";
    app.add_flag("--errors", options.errors, "Each directory that could not be read")->group(group);
    app.add_flag("--strict", options.strict,
                 "Exit with 3 if a directory could not be read, or a file was left out")
        ->group(group);
    app.add_flag("-q,--quiet", options.quiet,
                 "No progress, no closing line, no count of unread directories")
        ->group(group);
    app.add_flag("--stats", options.statistics,
                 "At the end: matches, what was walked, time, where from")
        ->group(group);
    addValue(
        app, "--summary", "json",
        [&options](const std::string& text) {
            if (text != "json") throw CLI::ValidationError("--summary", "not json");
            options.summary = true;
        },
        "At the end: how complete the answer is, as a JSON object")
        ->group(group);
    addText(app, "--summary-file", "FILE", options.summaryFile, "Write that to FILE instead")
        ->group(group);
}

void addOthers(CLI::App& app, Options& options) {
    const char* group = "Instead of searching";
    app.add_flag("--drives", options.listDrives, "List the drives: directory, type, file system")
        ->group(group);
    addText(app, "--check", "CRITERIA", options.check,
            "Say whether the criteria compiles, and to what")
        ->group(group);
    app.add_flag("--explain", options.explain, "Tell how the search would be run")->group(group);
    addCacheTask(app, options, "--cache-status", CacheTask::status,
                 "Tell where the cache is and what it holds")
        ->group(group);
    addCacheTask(app, options, "--cache-check", CacheTask::check,
                 "Compare the cache's files with their checksums")
        ->group(group);
    addCacheTask(app, options, "--cache-compact", CacheTask::compact,
                 "Give the space of removed records back, if there are many")
        ->group(group);
    addValue(
        app, "--cache-forget", "PATH",
        [&options](const std::string& path) {
            options.cacheTask = CacheTask::forget;
            options.forgotten = path;
        },
        "Drop the tree of that directory from the cache")
        ->group(group);
    addCacheTask(app, options, "--cache-clear", CacheTask::clear, "Delete the cache's files")
        ->group(group);
    app.set_version_flag("--version", std::string("fscan ") + fscanner::fsVersion(),
                         "Print the version")
        ->group(group);
    app.set_help_flag("-h,--help", "Print this help")->group(group);
    addText(app, "--debug-log", "FILE", options.debugLog, "Write the library's debug log to FILE")
        ->group("Finding faults");
}

}  // namespace fscan

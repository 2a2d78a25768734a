#include "fscan/options/hints.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "fscan/options/options.h"
#include "fscan/options/words.h"

namespace fscan {

namespace {

/// An option of find, fd or locate, and what to do instead.
struct Foreign {
    std::string_view spelling;
    std::string_view advice;
};

constexpr std::string_view kHiddenIsFound =
    "names that begin with '.' are found, unless --no-hidden is given";
constexpr std::string_view kIgnoredIsFound =
    "ignored files are found, unless --ignore or --no-hidden is given";
constexpr std::string_view kOr = "several -n are or-ed; or write -w 'CRITERIA || CRITERIA'";

constexpr Foreign kForeign[] = {
    // find
    {"-name", "write -n GLOB"},
    {"-iname", "write -i -n GLOB"},
    {"-path", "write --path GLOB"},
    {"-wholename", "write --path GLOB"},
    {"-ipath", "write -i --path GLOB"},
    {"-regex", "write --path-regex REGEX"},
    {"-iregex", "write -i --path-regex REGEX"},
    {"-type", "write -t KIND, such as -t f"},
    {"-maxdepth", "write --max-depth N"},
    {"-mindepth", "write --min-depth N"},
    {"-mtime", "write --newer 2d or --older 2d"},
    {"-mmin", "write --newer 30m or --older 30m"},
    {"-newer", "write --newer FILE"},
    {"-newermt", "write --newer WHEN"},
    {"-size", "write --size, --larger or --smaller"},
    {"-perm", "write --perm BITS"},
    {"-user", "write --owner USER"},
    {"-group", "write --group GROUP"},
    {"-empty", "write --empty"},
    {"-not", "write --not"},
    {"!", "write --not"},
    {"-and", "conditions are and-ed without it"},
    {"-o", kOr},
    {"-or", kOr},
    {"-print", "paths are printed without it"},
    {"-print0", "write -0"},
    {"-exec", "write -e CMD {} ';'"},
    {"-execdir", "write --exec-dir CMD {} ';'"},
    {"-delete", "write --exec-batch rm -f -- {} +"},
    {"-ls", "write -l"},
    {"-xdev", "write --one-file-system"},
    {"-mount", "write --one-file-system"},
    {"-prune", "write -x PATH"},
    {"-executable", "write -t x"},
    {"-follow", "write -L"},
    // fd
    {"-E", "write -x PATH"},
    {"--extension", "write -n '*.EXTENSION'"},
    {"-H", kHiddenIsFound},
    {"--hidden", kHiddenIsFound},
    {"--no-ignore", kIgnoredIsFound},
    {"-u", kIgnoredIsFound},
    {"--unrestricted", kIgnoredIsFound},
    {"-g", "write -n GLOB"},
    {"--glob", "write -n GLOB"},
    {"-s", "-n is case-sensitive without it"},
    {"--case-sensitive", "-n is case-sensitive without it"},
    {"-d", "write --max-depth N"},
    {"-a", "write --absolute"},
    {"--absolute-path", "write --absolute"},
    {"-p", "write --path GLOB or --path-regex REGEX"},
    {"--full-path", "write --path GLOB or --path-regex REGEX"},
    {"-X", "write --exec-batch CMD {} +"},
    {"-S", "write --size, --larger or --smaller"},
    {"--threads", "the number of threads cannot be chosen"},
    {"-j", "the number of threads cannot be chosen"},
    {"--max-results", "write --limit N"},
    // locate
    {"-b", "-n looks at names alone"},
    {"--basename", "-n looks at names alone"},
    {"--wholename", "write --path GLOB"},
    {"--regexp", "write -r REGEX"},
};

const Foreign* foreign(std::string_view spelling) {
    const auto found =
        std::find_if(std::begin(kForeign), std::end(kForeign),
                     [spelling](const Foreign& row) { return row.spelling == spelling; });
    return found == std::end(kForeign) ? nullptr : found;
}

std::string withAdvice(std::string_view argument, const Foreign& row) {
    return fmt::format("unknown option {}; {}", argument, row.advice);
}

std::vector<std::string> longOptions(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    return names;
}

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

/// Whether the next argument is the value of the option, or of the last of the letters, that
/// this one is.
bool takesNext(const CLI::App& app, const std::string& argument) {
    if (argument.starts_with("--")) {
        const CLI::Option* const option = app.get_option_no_throw(argument);
        return option != nullptr && takesValue(*option);
    }
    if (!argument.starts_with('-')) return false;
    for (std::size_t i = 1; i < argument.size(); ++i) {
        const CLI::Option* const option = app.get_option_no_throw({'-', argument[i]});
        if (option == nullptr) return false;
        if (takesValue(*option)) return i + 1 == argument.size();
    }
    return false;
}

std::optional<std::string> misread(const std::string& argument,
                                   const std::vector<std::string>& known) {
    const bool letters = argument.size() > 2 && argument[0] == '-' && argument[1] != '-';
    if (!letters && argument != "!") return std::nullopt;
    if (const Foreign* const row = foreign(argument)) return withAdvice(argument, *row);
    const std::string meant = "-" + argument;
    if (std::find(known.begin(), known.end(), meant) == known.end()) return std::nullopt;
    return fmt::format("unknown option {}; did you mean {}?", argument, meant);
}

}  // namespace

std::optional<std::string> misreadOption(const CLI::App& app,
                                         const std::vector<std::string>& arguments) {
    const std::vector<std::string> known = longOptions(app);
    for (auto at = arguments.begin(); at != arguments.end() && *at != "--"; ++at) {
        if (auto message = misread(*at, known)) return message;
        if (takesNext(app, *at) && ++at == arguments.end()) break;
    }
    return std::nullopt;
}

std::string unknownOption(const CLI::App& app, const std::string& argument) {
    const bool isLong = argument.starts_with("--");
    // A letter's value may follow it at once: -d3.
    const std::string name = argument.substr(0, isLong ? argument.find('=') : 2);
    const Foreign* row = foreign(argument);
    if (row == nullptr) row = foreign(name);
    if (row != nullptr) return withAdvice(argument, *row);
    return "unknown option " + argument + (isLong ? suggestionText(name, longOptions(app)) : "");
}

std::string extensionHint(const std::string& option, const std::vector<std::string>& words) {
    const bool command = std::find(words.begin(), words.end(), "{}") != words.end();
    if ((option != "-e" && option != "--exec") || words.empty() || command) return "";
    const std::string& extension = words.front();
    return fmt::format("; for names that end so, write -n '*.{}'",
                       extension.substr(extension.starts_with('.') ? 1 : 0));
}

std::optional<std::string> commandForExclude(const Options& options) {
    const bool place =
        options.pattern == "{}" ||
        std::find(options.paths.begin(), options.paths.end(), "{}") != options.paths.end();
    if (!place || options.excludes.empty() || options.runsCommands()) return std::nullopt;
    return "-x leaves out a path; to run a command write -e CMD {} ';'";
}

namespace {

bool hasMode(const std::string& path, mode_t type) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && (info.st_mode & S_IFMT) == type;
}

bool hasWildcard(std::string_view text) {
    return text.find_first_of("*?[{\\") != text.npos;
}

std::string_view sharedStart(std::string_view a, std::string_view b) {
    return a.substr(
        0, static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first -
                                    a.begin()));
}

std::string_view sharedEnd(std::string_view a, std::string_view b) {
    const auto differ = std::mismatch(a.rbegin(), a.rend(), b.rbegin(), b.rend()).first;
    return a.substr(static_cast<std::size_t>(a.rend() - differ));
}

/// The PATHs that are searched, without their drive groups.
std::vector<std::string> directories(const Options& options) {
    std::vector<std::string> paths = options.paths;
    if (paths.empty()) paths.emplace_back(".");
    for (std::string& path : paths) takeDriveGroup(path);
    return paths;
}

std::string joined(const std::string& directory, const std::string& name) {
    if (directory == ".") return name;
    return directory + (directory.ends_with('/') ? "" : "/") + name;
}

/// As many files as a hint may look at.
constexpr std::size_t kMostLooks = 8;

/// A directory of a name that was to be found, where directories were not.
std::optional<std::string> directoryHint(const Options& options) {
    if (options.findsDirectories()) return std::nullopt;
    std::size_t looks = 0;
    for (const std::string& name : options.names) {
        if (name.empty() || hasWildcard(name)) continue;
        for (const std::string& directory : directories(options)) {
            if (++looks > kMostLooks) return std::nullopt;
            const std::string path = joined(directory, name);
            if (hasMode(path, S_IFDIR))
                return fmt::format("a directory of that name exists: {}; add -t d", path);
        }
    }
    return std::nullopt;
}

std::optional<std::string> slashHint(const Options& options) {
    const bool slash =
        std::any_of(options.names.begin(), options.names.end(),
                    [](const std::string& name) { return name.find('/') != name.npos; });
    if (!slash) return std::nullopt;
    return "names hold no '/': use --path";
}

/// A first word that was meant as a PATH.
std::optional<std::string> wordHint(const Options& options) {
    if (!options.pattern || !options.paths.empty() || !hasMode(*options.pattern, S_IFDIR))
        return std::nullopt;
    return fmt::format("{0} is a part of a name here; to search the directory write {0}/",
                       *options.pattern);
}

std::optional<std::string> caseHint(const Options& options) {
    const auto hint = [](const std::string& text) {
        return fmt::format("{} is case-sensitive because of its upper-case letters; add -i", text);
    };
    if (options.pattern && options.caseOf(*options.pattern) == CaseMode::sensitive)
        return hint(*options.pattern);
    for (const std::string& regex : options.regexes)
        if (options.caseOf(regex, true) == CaseMode::sensitive) return hint("-r " + regex);
    return std::nullopt;
}

/// fd's words for kinds.
std::optional<std::string> kindHint(const Options& options) {
    constexpr std::pair<std::string_view, char> kinds[] = {
        {"file", 'f'}, {"directory", 'd'},  {"dir", 'd'},          {"symlink", 'l'},
        {"pipe", 'p'}, {"executable", 'x'}, {"block-device", 'b'}, {"socket", 's'}};
    for (const auto& [word, letter] : kinds)
        if (std::find(options.types.begin(), options.types.end(), word) != options.types.end())
            return fmt::format("-t {} is a word of descriptions; the kind is -t {}", word, letter);
    return std::nullopt;
}

}  // namespace

std::string expandedPatternHint(const Options& options) {
    std::vector<std::string> firsts = options.names;
    if (options.pattern) firsts.push_back(*options.pattern);
    for (const std::string& first : firsts) {
        if (!hasMode(first, S_IFREG)) continue;
        std::string_view start = first;
        std::string_view end = first;
        for (const std::string& path : options.paths) {
            if (!hasMode(path, S_IFREG)) continue;
            start = sharedStart(start, path);
            end = sharedEnd(end, path);
        }
        const bool alike = start.size() + end.size() > 0 && start != first;
        if (alike)
            return fmt::format("; quote the pattern: {}'{}*{}'", options.pattern ? "" : "-n ",
                               start, end);
    }
    return "";
}

std::optional<std::string> hintForNothing(const Options& options) {
    for (const auto hint : {slashHint, directoryHint, kindHint, wordHint, caseHint})
        if (std::optional<std::string> text = hint(options)) return text;
    return std::nullopt;
}

}  // namespace fscan

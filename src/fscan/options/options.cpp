#include "fscan/options/options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string_view>

#include "fscan/options/hints.h"
#include "fscan/options/option_groups.h"
#include "fscan/options/option_table.h"
#include "fscan/options/words.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscanner/fs/fs_config.h"

namespace fscan {

namespace {

constexpr const char* kDescription =
    R"(fscan finds files by name and by criteria over name, size and attributes.

Examples:
  fscan -n '*.h' -n '*.hpp' /usr/include      headers, by name
  fscan --larger 10M --older 30d -l /var      large files that are not new
  fscan -t ELF --perm u+w /usr/bin            programs their owners may change
  fscan -w '[SIZE] > 1000 && [SIZE] < 2000'   by criteria
  fscan -n '*.log' -x '*/archive' --exec gzip {} ';'
)";

constexpr const char* kExitStatuses =
    R"(Exit status: 0 something found, 1 nothing found, 2 wrong option or criteria,
or no right PATH, 3 the answer is incomplete, 4 the provider, the cache, the
mount table, the file program or the output failed, 5 a command of --exec
failed.)";

std::string_view firstLine(std::string_view text) {
    return text.substr(0, text.find('\n'));
}

constexpr std::size_t kHelpColumn = 28;
constexpr std::size_t kHelpWidth = 79;

/// The text in lines of so many characters, broken at spaces.
std::string wrapped(std::string text, std::size_t width) {
    for (std::size_t start = 0; text.size() - start > width;) {
        const std::size_t space = text.rfind(' ', start + width);
        if (space == text.npos || space <= start) break;
        text[space] = '\n';
        start = space + 1;
    }
    return text;
}

/// The help for terminals of 80 columns, with a usage line for the PATHs, of which CLI11 does
/// not know.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(kHelpColumn); }
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_type_size() == 0 ? "" : " " + option->get_type_name();
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        return wrapped(option->get_description(), kHelpWidth - kHelpColumn);
    }
    std::string make_usage(const CLI::App*, std::string) const override {
        return "Usage: fscan [OPTIONS] [PATTERN] [PATH...]\n"
               "PATTERN is a part of a name, or with *, ?, [...] or {a,b} all of it; upper case\n"
               "counts if it has any. A word with a / in it, . and .. are PATHs, and so is each\n"
               "word where -n, -r, --path, --path-regex or -w is given.\n"
               "PATH is a directory to search; default: the current one. It may begin with\n"
               "a drive group: $local::PATH, $remote::PATH, $other::PATH, $all::PATH.\n\n";
    }
    std::string make_group(std::string group, bool positional,
                           std::vector<const CLI::Option*> options) const override {
        // The base class begins and ends the group with an empty line; one is enough.
        return Formatter::make_group(group, positional, options).substr(1);
    }
};

CLI::ParseError wrong(const std::string& text) {
    return {text, CLI::ExitCodes::ExtrasError};
}

/// Takes the other arguments as PATHs. They are no positionals of CLI11, which
/// would read "[a,b]" as a list.
void takePaths(const CLI::App& app, std::vector<std::string>& paths) {
    bool dashesSeen = false;
    for (std::string& argument : app.remaining()) {
        if (!dashesSeen && argument == "--") {
            dashesSeen = true;
        } else if (!dashesSeen && argument.size() > 1 && argument.starts_with('-')) {
            throw wrong(unknownOption(app, argument));
        } else {
            paths.push_back(std::move(argument));
        }
    }
}

/// Whether a word that could be a PATTERN is a PATH. No file name holds a "/".
bool isPath(std::string word) {
    return word.empty() || word == "." || word == ".." || word.find('/') != word.npos ||
           takeDriveGroup(word);
}

/// The word, which is a PATTERN that can be read.
std::string checkedPattern(const std::string& word) {
    std::string error;
    if (!NamePattern::pattern(word, CaseMode::sensitive, error))
        throw wrong(fmt::format("{}: {}", word, error));
    return word;
}

/// The first word is a PATTERN, unless it must be a PATH or another option says which names, paths
/// or files are asked for.
void takePattern(Options& options) {
    const std::vector<std::string>* const others[] = {&options.names, &options.regexes,
                                                      &options.pathGlobs, &options.pathRegexes,
                                                      &options.criteria};
    const bool told = std::any_of(std::begin(others), std::end(others),
                                  [](auto* given) { return !given->empty(); });
    // A watch finds nothing: all words are PATHs.
    const bool watches = options.cacheTask == CacheTask::watch;
    if (told || watches || options.paths.empty() || isPath(options.paths.front())) return;
    options.pattern = checkedPattern(options.paths.front());
    options.paths.erase(options.paths.begin());
}

/// Refuses what would silently mean something else than its author thinks.
void refuseMisread(const std::optional<std::string>& message) {
    if (message) throw wrong(*message);
}

/// CLI11 stops reading at "++".
void refuseTerminator(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (argument == "--") return;
        if (argument == "++") throw wrong("++ must follow -- or be written ./++");
    }
}

/// A watch keeps whole trees, for all searches.
void refuseConditions(const Options& options, bool prints) {
    const bool finds =
        !options.names.empty() || !options.regexes.empty() || !options.pathGlobs.empty() ||
        !options.pathRegexes.empty() || !options.criteria.empty() || !options.negated.empty() ||
        !options.types.empty() || options.kinds != 0 || options.empty || options.larger ||
        options.smaller || options.size || options.newer || options.older;
    constexpr unsigned kAnyDepth = fscanner::FsDepthRange().most;
    const bool limits = options.followLinks || !options.recurse || options.ignoreFiles ||
                        options.depth.least != 0 || options.depth.most != kAnyDepth ||
                        options.limit;
    if (finds || limits || prints || options.explain)
        throw wrong("--watch keeps whole trees: it takes PATHs, and no conditions on files");
}

/// Sums are of all matches, and in forms of their own.
void refuseWithSums(const Options& options) {
    if (options.allocated && !options.sumBy && !options.report)
        throw wrong("--allocated is for --sum and --report");
    if (!options.sumBy && !options.report) return;
    const bool table = options.form != OutputForm::longer && !options.formatTemplate;
    const bool prints = options.countOnly || options.runsCommands() || options.nullTerminated;
    if (options.report && (options.sumBy || prints || options.form != OutputForm::plain || !table))
        throw wrong("--report writes a page, and prints nothing");
    if (!table || prints) throw wrong("--sum prints a table, --json, --json-array or --csv");
    if (!options.sortKeys.empty() || options.limit || options.withTypes)
        throw wrong("--sum and --report are of all matches, the largest first; --top limits --sum");
    if (!options.sumBy) return;
    if (options.sumDepth != 0 && *options.sumBy != SumBy::directory)
        throw wrong("--depth is for --sum dir; --max-depth limits a search");
}

/// A screen shows matches itself.
void refuseWithScreen(const Options& options, int forms, bool runs) {
    if (!options.interactive) return;
    const bool others = options.cacheTask != CacheTask::none || options.check || options.explain ||
                        options.listDrives || options.statistics || options.summary;
    if (forms > (runs ? 1 : 0) || others || options.limit || !options.sortKeys.empty() ||
        options.reverse)
        throw wrong(
            "--interactive prints the paths that are chosen or gives them to --exec, and sorts by "
            "a key");
}

/// Refuses options that exclude each other.
void refuseContradictions(const Options& options) {
    const bool runs = options.runsCommands();
    refuseWithSums(options);
    const bool sums = (options.sumBy && options.form == OutputForm::plain) || options.report;
    const int forms = (sums ? 1 : 0) + (options.form != OutputForm::plain ? 1 : 0) +
                      (options.formatTemplate ? 1 : 0) + (options.countOnly ? 1 : 0) +
                      (runs ? 1 : 0);
    if (forms > 1)
        throw wrong("only one of --long, --json, --json-array, --csv, --format, --count, --exec");
    const bool lines = options.form == OutputForm::plain || options.form == OutputForm::longer;
    if (options.nullTerminated && !lines) throw wrong("--null is for paths, not for JSON or CSV");
    if (options.cacheTask == CacheTask::watch) refuseConditions(options, forms > 0);
    refuseWithScreen(options, forms, runs);
}

/// Kinds that are not wanted are left out by the search itself. Of its own, a negated condition
/// asks for no kind.
void settleNegated(Options& options, Options& negated) {
    negated.ignoreCase = options.ignoreCase;
    options.kinds &= ~negated.kinds;
    negated.kinds = fscanner::FS_KINDS_ALL;
}

/// Decides on the kinds that nobody asked for. A condition that is for regular files alone implies
/// them.
void settleKinds(Options& options) {
    bool told = options.kinds != 0;
    options.kindsWereLeft = !told;
    for (Options& negated : options.negated) {
        if (!told && negated.kinds != 0) options.kinds = fscanner::FS_KINDS_ALL;
        told = told || negated.kinds != 0;
        settleNegated(options, negated);
    }
    if (told && options.kinds == 0) complain("note: no kind is left to be found");
    if (told) return;
    options.kinds = options.executable || options.empty ? fscanner::FS_KIND_FILE
                    : options.pattern || !options.regexes.empty()
                        ? fscanner::FS_KINDS_ALL
                        : fscanner::FS_KINDS_BUT_DIRECTORIES;
}

/// Tells of options that are valid, but together find nothing.
void noteImpossible(const Options& options) {
    if (options.larger && options.smaller && *options.smaller <= *options.larger + 1)
        complain("note: no size is both --larger and --smaller");
    if (options.depth.least > options.depth.most)
        complain("note: no depth is both from --min-depth on and up to --max-depth");
    if (options.newer && options.older && options.older->seconds <= options.newer->seconds + 1 &&
        !options.timesOfFiles)
        complain("note: no time is both --newer and --older");
}

using Words = std::vector<std::string>;

const std::map<std::string, CommandUse> kCommandUses = {{"-e", CommandUse::forEach},
                                                        {"--exec", CommandUse::forEach},
                                                        {"--exec-batch", CommandUse::forMany},
                                                        {"--exec-dir", CommandUse::inDirectory}};

/// The words from `at` up to the word `end`. `at` is moved behind it.
Words takeWords(Words::const_iterator& at, Words::const_iterator last, const std::string& option,
                const std::string& end) {
    const auto stop = std::find(at, last, end);
    if (stop == last)
        throw wrong(fmt::format("{} needs '{}' behind its command{}", option, end,
                                extensionHint(option, Words(at, stop))));
    if (stop == at) throw wrong(option + " needs a command");
    Words words(at, stop);
    at = stop + 1;
    return words;
}

/// Takes the commands of "-e CMD... ;", "--exec-batch CMD... +" and "--exec-dir CMD... ;"
/// out of the arguments, as CLI11 cannot read such options. Throws a CLI::ParseError where the
/// end of a command is missing.
Words takeCommands(const Words& arguments, Options& options) {
    Words rest;
    for (auto at = arguments.begin(); at != arguments.end();) {
        if (*at == "--") {
            rest.insert(rest.end(), at, arguments.end());
            break;
        }
        const std::string argument = *at++;
        const auto use = kCommandUses.find(argument);
        if (use == kCommandUses.end()) {
            rest.push_back(argument);
            continue;
        }
        if (!rest.empty() && rest.back() == "--not")
            throw wrong(fmt::format("--not {}: no condition", argument));
        if (options.command)
            throw wrong("only one command, by one of --exec, --exec-batch, --exec-dir");
        options.commandUse = use->second;
        const char* const end = use->second == CommandUse::forMany ? "+" : ";";
        options.command = takeWords(at, arguments.end(), argument, end);
        for (const std::string& word : *options.command)
            if (use->second == CommandUse::forMany && word != "{}" && word.find("{}") != word.npos)
                throw wrong(fmt::format(
                    "--exec-batch {}: {{}} stands for many paths, so it must be a word of its own",
                    word));
    }
    return rest;
}

/// The number of arguments that an option takes together with its value; 0 if it is no option of
/// the app.
std::size_t lengthOf(const CLI::App& app, const std::string& argument) {
    const bool isShort = argument.size() > 1 && argument[0] == '-' && argument[1] != '-';
    const std::string name =
        isShort ? argument.substr(0, 2) : argument.substr(0, argument.find('='));
    const CLI::Option* const option = app.get_option_no_throw(name);
    if (option == nullptr) return 0;
    return option->get_items_expected_max() > 0 && name.size() == argument.size() ? 2 : 1;
}

/// Takes "--not" and the condition behind it out of the arguments.
Words takeNegations(const Words& arguments, Options& options) {
    Words rest;
    for (auto at = arguments.begin(); at != arguments.end();) {
        if (*at == "--") {
            rest.insert(rest.end(), at, arguments.end());
            break;
        }
        if (*at++ != "--not") {
            rest.push_back(*(at - 1));
            continue;
        }
        if (at == arguments.end()) throw wrong("--not needs a condition behind it");
        Options negated;
        if (isPath(*at)) throw wrong(fmt::format("--not {}: a PATH is no condition", *at));
        if (!at->starts_with('-')) {
            negated.pattern = checkedPattern(*at++);
        } else {
            CLI::App app;
            OptionTable table(app, arguments);
            addSelection(table, negated);
            const std::size_t length = lengthOf(app, *at);
            if (length == 0 || *at == "-i" || *at == "--ignore-case")
                throw wrong(fmt::format("--not {}: no condition", *at));
            const auto last =
                at + std::min(arguments.end() - at, static_cast<std::ptrdiff_t>(length));
            Words one(at, last);
            std::reverse(one.begin(), one.end());
            app.parse(one);
            at = last;
        }
        options.negated.push_back(std::move(negated));
    }
    return rest;
}

void addNegation(CLI::App& app) {
    // For the help alone: `takeNegations` takes it out before CLI11 reads the arguments.
    app.add_flag("--not")
        ->description("The condition behind it must not hold: --not -n '*.o'")
        ->group("What to find");
}

/// For the help, and to refuse a command that does not stand apart, as in -eCMD: `takeCommands`
/// takes all others out before CLI11 reads the arguments.
void addCommand(OptionTable& table, const char* flags, const char* type, const char* help) {
    const std::string name = std::strstr(flags, "--");
    const auto refuse = [name](const std::string& text) {
        throw CLI::ValidationError(name,
                                   "its command must stand apart" + extensionHint(name, {text}));
    };
    table.addValue(flags, type, refuse, help).group("What to run");
}

void addCommands(OptionTable& table) {
    addCommand(table, "-e,--exec", "CMD... ;", "Run CMD for each match, in order; {} is its path");
    addCommand(table, "--exec-batch", "CMD... +",
               "Run CMD with as many matches as it can take for {}");
    addCommand(table, "--exec-dir", "CMD... ;",
               "Run CMD for each match in its directory; {} is ./NAME; safest");
}

void addOptions(OptionTable& table, Options& options) {
    table.app().allow_extras();
    addSelection(table, options);
    if (!table.isLimited()) addNegation(table.app());
    addPlaces(table, options);
    addProvider(table, options);
    addOutput(table, options);
    addCommands(table);
    addReports(table, options);
    addOthers(table, options);
}

/// The arguments but for PATTERN and PATHs, for searches with other words. Throws a CLI::ParseError
/// where short options and a value in one word hide which is which.
Words withoutWords(const CLI::App& app, const Words& arguments, std::size_t words) {
    Words options;
    for (auto at = arguments.begin(); at != arguments.end() && *at != "--";) {
        const bool isOption = at->size() > 1 && at->starts_with('-');
        const bool negates = *at == "--not" && at + 1 != arguments.end() && at[1][0] != '-';
        const std::size_t length = negates ? 2 : std::max<std::size_t>(lengthOf(app, *at), 1);
        const auto next = at + std::min(arguments.end() - at, static_cast<std::ptrdiff_t>(length));
        if (isOption && *at != "-I" && *at != "--interactive")
            options.insert(options.end(), at, next);
        words -= isOption || words == 0 ? 0 : 1;
        at = next;
    }
    const auto end = std::find(arguments.begin(), arguments.end(), "--");
    const auto behind = static_cast<std::size_t>(arguments.end() - end);
    if (words != (behind > 0 ? behind - 1 : 0))
        throw wrong("with --interactive, write each short option as a word of its own");
    return options;
}

/// Throws a CLI::ParseError for wrong arguments.
void readArguments(CLI::App& app, Words arguments, Options& options) {
    arguments = takeCommands(arguments, options);
    const Words given = arguments;
    refuseMisread(misreadOption(app, arguments));
    arguments = takeNegations(arguments, options);
    refuseTerminator(arguments);
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants them
    app.parse(arguments);
    takePaths(app, options.paths);
    takePattern(options);
    refuseMisread(commandForExclude(options));
    refuseContradictions(options);
    if (options.interactive)
        options.optionArguments =
            withoutWords(app, given, options.paths.size() + (options.pattern ? 1 : 0));
}

/// What nobody asked for, and what is worth a note.
void settle(Options& options) {
    settleKinds(options);
    if (options.followLinks && !options.provider) options.provider = "provider_direct";
    noteImpossible(options);
}

/// Reads the arguments with a table of the options that they name. Nothing where they are wrong or
/// ask for help.
std::optional<Options> readNamed(const Words& arguments) {
    try {
        std::optional<Options> options(std::in_place);
        CLI::App app;
        OptionTable table(app, arguments);
        addOptions(table, *options);
        readArguments(app, arguments, *options);
        return options;
    } catch (const CLI::ParseError&) {
        return std::nullopt;
    }
}

/// Reads the arguments with a table of all options, and answers what is no search.
std::optional<ExitStatus> readOrTell(const Words& arguments, Options& options, Output& out) {
    CLI::App app(kDescription, "fscan");
    app.formatter(std::make_shared<HelpFormatter>());
    app.footer(kExitStatuses);
    OptionTable table(app);
    addOptions(table, options);
    groupMostUsed(app);
    const CLI::Option* words = app.add_flag("--list-words")->group("");  // for completions
    try {
        readArguments(app, arguments, options);
        settle(options);
        if (words->count() == 0) return std::nullopt;
        listWords(app, out);
    } catch (const CLI::CallForHelp&) {
        out.write(app.help());
    } catch (const CLI::CallForVersion& version) {
        out.write(version.what() + std::string("\n"));
    } catch (const CLI::ParseError& error) {
        const std::string_view text = firstLine(error.what());
        complain(fmt::format("{}{} fscan --help", text, text.ends_with('?') ? " See" : "; see"));
        return ExitStatus::usage;
    }
    return ExitStatus::found;
}

}  // namespace

std::optional<ExitStatus> parseOptions(int argc, char** argv, Options& options, Output& out) {
    const Words arguments(argv + std::min(argc, 1), argv + argc);
    std::optional<Options> named = readNamed(arguments);
    if (!named) return readOrTell(arguments, options, out);
    options = std::move(*named);
    settle(options);
    return std::nullopt;
}

const fscanner::FsSettings& settings() {
    struct ReportedSettings : fscanner::FsSettings {
        ReportedSettings() {
            if (getError() != 0) complain(getErrorText());
        }
    };
    static const ReportedSettings settings;
    return settings;
}

}  // namespace fscan

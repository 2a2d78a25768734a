#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// The options of the command line, in the groups of the help. Each function adds the options
/// of one group; when they are parsed, they fill `options`.
namespace fscan {

struct Options;

// The search.
void addSelection(CLI::App& app, Options& options);
void addPlaces(CLI::App& app, Options& options);
void addProvider(CLI::App& app, Options& options);

// The output, and reports on standard error.
void addOutput(CLI::App& app, Options& options);
void addReports(CLI::App& app, Options& options);

// Tasks other than searching.
void addOthers(CLI::App& app, Options& options);

/// Moves the options that most searches need into a group of their own, which the help shows
/// first. To be called when all options are there.
void groupMostUsed(CLI::App& app);

/// Options with values. A value is one text and is not interpreted by CLI11.

using TakeText = std::function<void(const std::string&)>;

/// An option whose last use counts. `take` throws a CLI::ValidationError for a wrong
/// value.
CLI::Option* addValue(CLI::App& app, const std::string& flags, const std::string& type,
                      const TakeText& take, const std::string& help);
CLI::Option* addText(CLI::App& app, const std::string& flags, const std::string& type,
                     std::optional<std::string>& value, const std::string& help);
/// An option that can be given several times, with one value each.
CLI::Option* addTexts(CLI::App& app, const std::string& flags, const std::string& type,
                      const TakeText& take, const std::string& help);
CLI::Option* addTexts(CLI::App& app, const std::string& flags, const std::string& type,
                      std::vector<std::string>& values, const std::string& help);
CLI::Option* addDuration(CLI::App& app, const std::string& flag, unsigned least, unsigned limit,
                         const std::function<void(unsigned)>& take, const std::string& help);
CLI::Option* addSize(CLI::App& app, const std::string& flag,
                     std::optional<unsigned long long>& bytes, const std::string& help);

/// A flag that makes one of several choices; an error where another one was made before.
template <class Choice>
CLI::Option* addChoice(CLI::App& app, const std::string& flag, Choice& chosen, Choice one,
                       const std::string& help) {
    const Choice usual = chosen;
    return app.add_flag_function(
        flag,
        [&chosen, usual, one, flag](auto) {
            if (chosen != usual && chosen != one)
                throw CLI::ValidationError(flag, "not with the others of its kind");
            chosen = one;
        },
        help);
}

/// An option that takes one of the words.
template <class Choice>
CLI::Option* addWord(CLI::App& app, const std::string& flag, const std::string& type,
                     const std::map<std::string, Choice>& words,
                     const std::function<void(Choice)>& take, const std::string& help) {
    return addValue(
        app, flag, type,
        [flag, words, take](const std::string& value) {
            const auto found = words.find(value);
            if (found == words.end()) {
                std::string known;
                for (const auto& word : words) known += (known.empty() ? "" : ", ") + word.first;
                throw CLI::ValidationError(flag, "not one of " + known);
            }
            take(found->second);
        },
        help);
}

}  // namespace fscan

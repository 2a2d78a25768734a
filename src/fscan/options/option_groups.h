#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fscan/options/option_table.h"

/// The options of the command line, in the groups of the help. Each function adds the options
/// of one group; when they are parsed, they fill `options`.
namespace fscan {

struct Options;

// The search.
void addSelection(OptionTable& table, Options& options);
void addPlaces(OptionTable& table, Options& options);
void addProvider(OptionTable& table, Options& options);

// The output, and reports on standard error.
void addOutput(OptionTable& table, Options& options);
void addReports(OptionTable& table, Options& options);

// Tasks other than searching.
void addOthers(OptionTable& table, Options& options);

/// Moves the options that most searches need into a group of their own, which the help shows
/// first. To be called when all options are there.
void groupMostUsed(CLI::App& app);

AddedOption addText(OptionTable& table, const char* flags, const char* type,
                    std::optional<std::string>& value, const char* help);
/// An option that can be given several times, with one value each.
AddedOption addTexts(OptionTable& table, const char* flags, const char* type,
                     std::vector<std::string>& values, const char* help);
AddedOption addDuration(OptionTable& table, const char* flag, unsigned least, unsigned limit,
                        const std::function<void(unsigned)>& take, const char* help);
AddedOption addSize(OptionTable& table, const char* flag, std::optional<unsigned long long>& bytes,
                    const char* help);

/// A flag that makes one of several choices; an error where another one was made before.
template <class Choice>
AddedOption addChoice(OptionTable& table, const char* flag, Choice& chosen, Choice one,
                      const char* help) {
    const Choice usual = chosen;
    return table.addFlag(
        flag,
        [&chosen, usual, one, flag] {
            if (chosen != usual && chosen != one)
                throw CLI::ValidationError(flag, "not with the others of its kind");
            chosen = one;
        },
        help);
}

/// An option that takes one of the words, which must outlive the table.
template <class Choice>
AddedOption addWord(OptionTable& table, const char* flag, const char* type,
                    const std::map<std::string, Choice>& words,
                    const std::function<void(Choice)>& take, const char* help) {
    return table.addValue(
        flag, type,
        [flag, &words, take](const std::string& value) {
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

#include "fscan/options/words.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <numeric>
#include <span>
#include <utility>

#include "fscan/output/output.h"

namespace fscan {

namespace {

constexpr std::array<Word, 5> kFields = {{
    {"[FILENAME]", "TEXT", "The name, without its directory"},
    {"[SHORTFILENAME]", "TEXT", "A second, short name where there is one"},
    {"[SIZE]", "NUMBER", "Bytes"},
    {"[ATTR]", "NUMBER", "The sum of the attributes"},
    {"[PATHID]", "NUMBER", "The directory's number in the cache"},
}};

constexpr std::array<Word, 2> kCommands = {{
    {"type(", "PATH, TYPE", "Whether the file program names that type"},
    {"path(", "PATHID, NAME", "The full path of a file"},
}};

constexpr std::array<Word, 4> kGroups = {{
    {"$local::", "PATH", "Only local drives"},
    {"$remote::", "PATH", "Only remote drives"},
    {"$other::", "PATH", "Only drives of no other group"},
    {"$all::", "PATH", "Drives of every group"},
}};

std::vector<std::string> textsOf(std::span<const Word> words) {
    std::vector<std::string> texts;
    for (const Word& word : words) texts.emplace_back(word.text);
    return texts;
}

void listKind(std::string_view kind, std::span<const Word> words, Output& out) {
    for (const Word& word : words)
        out.write(fmt::format("{}\t{}\t{}\t{}\n", kind, word.text, word.value, word.help));
}

std::string namesOf(const CLI::Option& option) {
    std::string names;
    for (const std::string& name : option.get_snames())
        names += (names.empty() ? "-" : " -") + name;
    for (const std::string& name : option.get_lnames())
        names += (names.empty() ? "--" : " --") + name;
    return names;
}

}  // namespace

std::vector<std::string> wordsOfFields() {
    return textsOf(kFields);
}

std::vector<std::string> wordsOfCommands() {
    return textsOf(kCommands);
}

std::vector<std::string> wordsOfGroups() {
    return textsOf(kGroups);
}

std::optional<std::string_view> takeDriveGroup(std::string& path) {
    const auto begins = [&path](const Word& word) { return path.starts_with(word.text); };
    const auto found = std::find_if(kGroups.begin(), kGroups.end(), begins);
    if (found == kGroups.end()) return std::nullopt;
    path.erase(0, found->text.size());
    return found->text.substr(0, found->text.size() - 2);
}

void listWords(const CLI::App& app, Output& out) {
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty()) continue;  // hidden
        out.write(fmt::format("option\t{}\t{}\t{}\n", namesOf(*option),
                              option->get_items_expected_max() > 0 ? option->get_type_name() : "-",
                              option->get_description()));
    }
    listKind("field", kFields, out);
    listKind("command", kCommands, out);
    listKind("group", kGroups, out);
}

namespace {

/// The letters and digits, in lower case: "[Size]" is "size".
std::string core(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0) result += static_cast<char>(std::tolower(byte));
    }
    return result;
}

/// The edit distance: how many letters must be inserted, deleted, replaced or swapped with a
/// neighbour to turn `a` into `b`.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before, last(b.size() + 1), row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        before = std::exchange(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row.back();
}

/// The known word that may have been meant: one that contains `word`, or that differs from
/// it by few letters. Case is ignored.
std::optional<std::string> suggestion(std::string_view word,
                                      const std::vector<std::string>& known) {
    const std::string wanted = core(word);
    std::optional<std::string> best;
    std::size_t least = wanted.size() / 3 + 2;  // one more than is accepted
    for (const std::string& candidate : known) {
        const std::string text = core(candidate);
        const bool part = wanted.size() >= 3 && text.find(wanted) != text.npos;
        const std::size_t found = part ? 1 : distance(wanted, text);
        if (found < least) {
            least = found;
            best = candidate;
        }
    }
    return best;
}

}  // namespace

std::string suggestionText(std::string_view word, const std::vector<std::string>& known) {
    const auto meant = suggestion(word, known);
    return meant ? "; did you mean " + *meant + "?" : "";
}

}  // namespace fscan

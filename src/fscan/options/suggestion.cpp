#include "fscan/options/suggestion.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace fscan {

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

/// How many letters have to be put in, left out, replaced or exchanged with their
/// neighbours to make `b` of `a`.
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

}  // namespace

std::optional<std::string> suggestion(std::string_view word,
                                      const std::vector<std::string>& known) {
    const std::string wanted = core(word);
    std::optional<std::string> best;
    std::size_t least = wanted.size() / 3 + 2;  // one more than is let pass
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

std::string suggestionText(std::string_view word, const std::vector<std::string>& known) {
    const auto meant = suggestion(word, known);
    return meant ? "; did you mean " + *meant + "?" : "";
}

}  // namespace fscan

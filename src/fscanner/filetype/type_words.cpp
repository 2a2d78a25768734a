#include "fscanner/filetype/type_words.h"

#include <algorithm>

namespace fscanner {

std::vector<std::wstring> splitTypeWords(std::wstring_view text) {
    constexpr std::wstring_view separators = L" ,:";
    std::vector<std::wstring> words;
    std::size_t start = text.find_first_not_of(separators);
    while (start != std::wstring_view::npos) {
        std::size_t end = std::min(text.find_first_of(separators, start), text.size());
        words.emplace_back(text.substr(start, end - start));
        start = text.find_first_not_of(separators, end);
    }
    return words;
}

std::wstring descriptionOf(std::wstring_view line, std::size_t pathLength) {
    std::wstring description(line.substr(std::min(pathLength, line.size())));
    std::replace(description.begin(), description.end(), L'\t', L' ');
    std::replace(description.begin(), description.end(), L'\n', L' ');
    return description;
}

}  // namespace fscanner

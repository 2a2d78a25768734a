#include "fscanner/filetype/file_output.h"

#include <algorithm>
#include <utility>

namespace fscanner {

bool FileOutput::complete() const {
    return descriptions_.size() >= fileCount_ || received_ / (longestDescription + 1) > fileCount_;
}

void FileOutput::append(std::string_view bytes) {
    received_ += bytes.size();
    while (!bytes.empty() && descriptions_.size() < fileCount_) {
        std::size_t end = std::min(bytes.find('\0'), bytes.size());
        current_.append(bytes.substr(0, std::min(end, longestDescription - current_.size())));
        if (end == bytes.size()) return;
        descriptions_.push_back(std::exchange(current_, {}));
        bytes.remove_prefix(end + 1);
    }
}

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

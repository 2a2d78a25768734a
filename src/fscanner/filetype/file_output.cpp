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

}  // namespace fscanner

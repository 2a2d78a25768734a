#include "fscan/sum/sums.h"

#include <algorithm>
#include <tuple>

namespace fscan {

Sum& Sums::of(std::string_view name) {
    const auto known = sums_.find(name);
    return known != sums_.end() ? known->second : sums_.emplace(name, Sum()).first->second;
}

std::vector<Group> Sums::largest(std::size_t most) const {
    std::vector<const std::pair<const std::string, Sum>*> order;
    for (const auto& one : sums_) order.push_back(&one);
    const auto isLarger = [](const auto* a, const auto* b) {
        return std::tie(b->second.bytes, b->second.files, a->first) <
               std::tie(a->second.bytes, a->second.files, b->first);
    };
    const std::size_t count = std::min(most, order.size());
    std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(count),
                      order.end(), isLarger);
    std::vector<Group> groups;
    for (std::size_t i = 0; i < count; ++i) groups.push_back({order[i]->first, order[i]->second});
    return groups;
}

// A directory has a link for each directory in it, and can be met once, unless links are followed.
bool LinkedFiles::asks(const FileDetails& file) const {
    if ((file.attributes & fscanner::FS_ATTR_DIRECTORY) != 0) return all_;
    return all_ || file.links != 1;
}

bool LinkedFiles::isFirst(const FileDetails& file) {
    const bool known = file.inode != 0;
    return !known || !asks(file) || met_.emplace(file.device, file.inode).second;
}

}  // namespace fscan

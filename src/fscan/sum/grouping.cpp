#include "fscan/sum/grouping.h"

#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "fscan/text/values.h"

namespace fscan {

namespace {

constexpr long kDay = 86400;

long lastMidnight(std::time_t now) {
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) return now - now % kDay;
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

std::string_view sizeGroup(unsigned long long bytes) {
    struct Below {
        unsigned long long limit;
        std::string_view name;
    };
    static constexpr std::array<Below, 7> groups = {{{1, "0"},
                                                     {1ULL << 12, "<4K"},
                                                     {1ULL << 16, "<64K"},
                                                     {1ULL << 20, "<1M"},
                                                     {1ULL << 24, "<16M"},
                                                     {1ULL << 28, "<256M"},
                                                     {1ULL << 32, "<4G"}}};
    for (const Below& group : groups)
        if (bytes < group.limit) return group.name;
    return "more";
}

std::string_view kindGroup(const FileDetails& file) {
    switch (file.format) {
        case S_IFIFO:
            return "pipe";
        case S_IFSOCK:
            return "socket";
        case S_IFBLK:
        case S_IFCHR:
            return "device";
        default:
            return kindText(file.attributes);
    }
}

}  // namespace

Grouping::Grouping(SumBy by) : by_(by), now_(std::time(nullptr)), midnight_(lastMidnight(now_)) {}

std::string_view Grouping::groupOf(const Match& match, const FileDetails& file) {
    switch (by_) {
        case SumBy::extension:
            return extensionOf(match.name());
        case SumBy::owner:
            return file.examined ? ownerOf(file.user) : "(unknown)";
        case SumBy::kind:
            return kindGroup(file);
        case SumBy::age:
            return file.examined ? ageOf(file.modified) : "(unknown)";
        default:
            return sizeGroup(file.size);
    }
}

bool Grouping::lacks(const FileDetails& file) const {
    if (by_ == SumBy::owner || by_ == SumBy::age) return !file.examined;
    return by_ == SumBy::kind && file.format == 0 &&
           std::string_view(kindText(file.attributes)) == "other";
}

// The dot that a name begins with makes it a hidden one.
std::string_view Grouping::extensionOf(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == name.npos || dot == 0 || dot + 1 == name.size()) return "(none)";
    text_ = name.substr(dot + 1);
    for (char& c : text_)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text_;
}

std::string_view Grouping::ownerOf(unsigned user) {
    const auto [known, isNew] = owners_.try_emplace(user);
    if (isNew) {
        const passwd* const entry = getpwuid(user);
        known->second = entry != nullptr ? entry->pw_name : std::to_string(user);
    }
    return known->second;
}

std::string_view Grouping::ageOf(long modified) const {
    if (modified > now_) return "(future)";
    if (modified >= midnight_) return "today";
    if (modified > now_ - 7 * kDay) return "week";
    if (modified > now_ - 31 * kDay) return "month";
    return modified > now_ - 365 * kDay ? "year" : "older";
}

// ---- Directories ------------------------------------------------------------

std::string_view withoutSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return path;
}

std::string_view rootOf(std::string_view directory, const std::vector<std::string>& longestFirst) {
    for (const std::string& root : longestFirst) {
        if (!directory.starts_with(root)) continue;
        if (directory.size() == root.size() || root.ends_with('/') || directory[root.size()] == '/')
            return root;
    }
    return {};
}

DirectorySums::DirectorySums(std::vector<std::string> roots, unsigned depth)
    : roots_(std::move(roots)), depth_(depth) {
    for (std::string& root : roots_) root = withoutSlashes(root);
    std::stable_sort(roots_.begin(), roots_.end(),
                     [](auto& a, auto& b) { return a.size() > b.size(); });
}

void DirectorySums::add(const Match& match, unsigned long long bytes) {
    // A directory counts in its own sum.
    const std::string_view directory = match.isDirectory() ? match.path : match.directory();
    if (!entered_ || directory != directory_) enter(directory);
    for (Sum* const sum : above_) sum->add(bytes);
}

void DirectorySums::enter(std::string_view directory) {
    entered_ = true;
    directory_ = directory;
    above_.clear();
    const std::string_view root = rootOf(directory, roots_);
    if (roots_.size() > 1) above_.push_back(&sums_.of(root));
    std::size_t end = root.size();
    for (unsigned level = 0; level < depth_; ++level) {
        const std::size_t name = directory.find_first_not_of('/', end);
        if (name == directory.npos) break;
        end = std::min(directory.find('/', name), directory.size());
        above_.push_back(&sums_.of(directory.substr(0, end)));
    }
}

}  // namespace fscan

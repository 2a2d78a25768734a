#include "fscan/query/filters.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <filesystem>

#include "fscan/match/file_details.h"
#include "fscan/options/options.h"
#include "fscan/query/criteria.h"
#include "fscan/text/paths.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_text.h"

namespace fscan {

namespace {

bool matchesAll(const std::wstring& glob) {
    return !glob.empty() && glob.find_first_not_of(L'*') == glob.npos;
}

bool couldBePattern(const wchar_t* name) {
    while (*name != 0 && *name != L'*' && *name != L'?') ++name;
    return *name != 0;
}

}  // namespace

NameFilter::NameFilter(const Options& options) : caseSensitive_(!options.ignoreCase) {
    for (const std::string& name : options.names) globs_.push_back(toWide(name));
    if (std::any_of(globs_.begin(), globs_.end(), matchesAll)) globs_.clear();
    exact_ = std::none_of(globs_.begin(), globs_.end(),
                          [](const std::wstring& glob) { return glob.find(L'"') != glob.npos; });
}

std::wstring NameFilter::criteria() const {
    std::wstring text;
    for (std::wstring glob : globs_) {
        std::replace(glob.begin(), glob.end(), L'"', L'?');
        text += (text.empty() ? L"[FILENAME]==\"" : L" || [FILENAME]==\"") + glob + L'"';
    }
    return text.empty() ? text : L'(' + text + L')';
}

bool NameFilter::confirms(const wchar_t* name) const {
    return globs_.empty() || (exact_ && !couldBePattern(name)) || accepts(name);
}

bool NameFilter::accepts(const wchar_t* name) const {
    if (globs_.empty()) return true;
    return std::any_of(globs_.begin(), globs_.end(), [&](const std::wstring& glob) {
        return fscanner::fsNameMatches(glob.c_str(), name, caseSensitive_);
    });
}

namespace {

// A literal has at most 31 bits, but arithmetic has 63.
std::wstring number(unsigned long long value) {
    constexpr unsigned long long part = 1ULL << 30;
    if (value < part) return std::to_wstring(value);
    return fmt::format(L"({} * {} + {})", number(value / part), part, value % part);
}

std::wstring typeCriteria(const std::vector<std::string>& words) {
    std::wstring any;
    for (const std::string& word : words)
        any += fmt::format(L"{}type(path([PATHID], [FILENAME]), \"{}\") != 0",
                           any.empty() ? L"" : L" || ", toWide(word));
    return L"(" + any + L")";
}

std::wstring criteriaOf(const Options& options, bool mayBeOld) {
    std::wstring all;
    if (options.larger) andAlso(all, L"[SIZE] > " + number(*options.larger));
    if (options.smaller) andAlso(all, L"[SIZE] < " + number(*options.smaller));
    for (const PermissionTest& test : options.permissions)
        if (!mayBeOld) andAlso(all, test.criteria());
    if (options.links)
        andAlso(all, PermissionTest{fscanner::FS_ATTR_SYMBOLIC_LINK, false}.criteria());
    // Last: it reads the files.
    if (!options.types.empty()) andAlso(all, typeCriteria(options.types));
    return all;
}

}  // namespace

FileFilters::FileFilters(const Options& options, bool mayBeOld)
    : options_(options), mayBeOld_(mayBeOld), criteria_(criteriaOf(options, mayBeOld)) {
    for (const std::string& glob : options.pathGlobs) {
        const std::string whole = wholePathGlob(glob).value_or(glob);
        const bool anywhere = matchesAnywhere(glob);
        paths_.push_back(
            toWide(anywhere ? whole : std::filesystem::path(whole).lexically_normal().native()));
    }
}

bool FileFilters::pathFits(const std::wstring& directory, const wchar_t* name) const {
    if (paths_.empty()) return true;
    const std::wstring path = joinedPath(directory, name);
    return std::any_of(paths_.begin(), paths_.end(), [&](const std::wstring& glob) {
        return fscanner::fsNameMatches(glob.c_str(), path.c_str(), !options_.ignoreCase);
    });
}

bool FileFilters::needDetails() const {
    const bool permissions = mayBeOld_ && !options_.permissions.empty();
    return options_.newer || options_.older || options_.owner || permissions;
}

bool FileFilters::accept(const FileDetails& file) const {
    const bool permitted =
        std::all_of(options_.permissions.begin(), options_.permissions.end(),
                    [&file](PermissionTest test) { return test.holds(file.attributes); });
    return permitted && (!options_.newer || file.modified > *options_.newer) &&
           (!options_.older || file.modified < *options_.older) &&
           (!options_.owner || file.user == *options_.owner) &&
           (!options_.larger || file.size > *options_.larger) &&
           (!options_.smaller || file.size < *options_.smaller) &&
           (!options_.links || (file.attributes & fscanner::FS_ATTR_SYMBOLIC_LINK) != 0);
}

}  // namespace fscan

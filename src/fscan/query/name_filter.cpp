#include "fscan/query/name_filter.h"

#include <algorithm>

#include "fscan/options/options.h"
#include "fscan/text/text.h"
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

}  // namespace fscan

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fscan {

struct Options;

/// The paths to leave out, absolute and, before the first wildcard, without links.
class Excludes {
public:
    explicit Excludes(const Options& options);

    const std::vector<std::wstring>& patterns() const { return patterns_; }
    /// Whether the file is one of them or lies below one. The walk leaves whole
    /// directories out; this is for the files among the paths.
    bool cover(std::wstring_view directory, const wchar_t* name) const;
    bool cover(const std::wstring& path) const;

private:
    void add(std::wstring pattern);

    std::vector<std::wstring> patterns_;
    bool caseSensitive_;
};

}  // namespace fscan

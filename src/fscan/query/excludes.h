#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

class DriveList;
class LinkReader;
struct Options;
struct SearchRoots;

/// The paths to leave out, as patterns over whole paths.
///
/// A text stands for paths the way a GLOB of --path does (text/paths.h); what it names
/// from "/" or from the current directory on is resolved: before the first wildcard there
/// are no links.
class Excludes {
public:
    /// Nothing, with a message, where a text cannot be a path. `drives` are not touched at
    /// their mount points, and remote ones not below them unless a root lies there: one may
    /// be dead.
    static std::optional<Excludes> read(const Options& options, const DriveList& drives,
                                        const SearchRoots& roots);

    const std::vector<std::wstring>& patterns() const { return patterns_; }
    /// Whether the file is one of them or lies below one. The walk leaves whole
    /// directories out; this is for the files among the paths.
    bool cover(std::wstring_view directory, const wchar_t* name) const;
    bool cover(const std::wstring& path) const;
    /// The options' texts that covered nothing they were asked about so far.
    std::vector<std::string> unmet() const;

private:
    struct Given {
        std::string text;
        bool met = false;
    };

    bool add(const std::string& text, const LinkReader& links);
    void addAnywhere(const std::string& text, const LinkReader& links);
    void addResolved(const std::string& path, const LinkReader& links);
    void addPattern(std::wstring pattern);
    void addWholeMounts(const DriveList& drives);

    std::vector<std::wstring> patterns_;
    std::vector<std::size_t> owners_;   ///< of each pattern: the index of its text
    mutable std::vector<Given> given_;  ///< `cover` notes what it met
    bool caseSensitive_ = true;
};

}  // namespace fscan

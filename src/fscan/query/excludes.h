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
/// A text matches paths as a GLOB of --path does (text/paths.h). In a text that begins at "/"
/// or at the current directory, links before the first wildcard are resolved.
class Excludes {
public:
    /// Nothing, with a message, where a text cannot be a path. Mount points are not touched, and
    /// neither are remote drives that hold no root, as their servers may be dead.
    static std::optional<Excludes> read(const Options& options, const DriveList& drives,
                                        const SearchRoots& roots);

    const std::vector<std::wstring>& patterns() const { return patterns_; }
    /// Whether a pattern matches the file or a directory above it. The walk already leaves out
    /// directories; this is for patterns that match files.
    bool cover(std::wstring_view directory, const wchar_t* name) const;
    bool cover(const std::wstring& path) const;
    /// The texts of the options that have matched nothing so far.
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

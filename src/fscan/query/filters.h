#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/match/name_pattern.h"

namespace fscan {

class DriveList;
class LinkReader;
struct FileDetails;
struct Options;
struct SearchRoots;

/// The name patterns of the command line, one of which a name has to match.
///
/// They become criteria, so that the engine drops most files early, and are checked
/// once more here: in the criteria language a stored name with a wildcard acts as a pattern,
/// too, and no text can hold a double quote.
class NameFilter {
public:
    /// `negated`: of one condition that must not hold.
    explicit NameFilter(const Options& options, bool negated = false);

    /// The criteria that all matching names satisfy; empty where it could not tell names apart.
    std::wstring criteria() const;
    /// Whether case does not count in that criteria.
    bool criteriaIgnoresCase() const { return !criteriaCaseSensitive_; }
    bool accepts(const wchar_t* name) const;
    /// Whether there is no pattern.
    bool isEmpty() const { return patterns_.empty() && negated_.empty(); }
    /// The same as `accepts` for a name that satisfies the criteria, which is faster.
    bool confirms(const wchar_t* name) const { return isEmpty() || test(name); }

private:
    void add(std::optional<NamePattern> pattern);

    bool test(const wchar_t* name) const;
    bool acceptsAny(const wchar_t* name) const;

    std::vector<NamePattern> patterns_;
    std::vector<NameFilter> negated_;
    bool exact_ = true;  // the criteria expresses the patterns exactly
    bool criteriaCaseSensitive_;
};

/// The conditions of the command line besides names and criteria.
///
/// Conditions that the criteria language can express become criteria. The others, on the
/// path, times and owner, are checked on the matches; so are permissions where those in a
/// cache may be old.
class FileFilters {
public:
    /// `mayBeOld`: sizes and permissions of the matches may come from a cache.
    FileFilters(const Options& options, bool mayBeOld);

    /// Criteria that are and-ed with all others; empty where there are none.
    const std::wstring& criteria() const { return criteria_; }
    bool pathFits(const std::wstring& directory, const wchar_t* name) const {
        return !looksAtPaths_ || testPath(directory, name);
    }
    /// Whether `accept` must check matches, beyond their paths and the criteria.
    bool needDetails() const { return needDetails_; }
    /// Whether it needs what only the system tells, and no record of a scan has.
    bool needSystem() const { return needSystem_; }
    /// Whether an examined file meets the conditions, except those on its path and type, and on
    /// what is in a directory.
    bool accept(const FileDetails& file) const;
    /// Whether directories have to be empty, or must not be.
    std::optional<bool> emptiness() const;

private:
    /// A glob of --path, and what of it is decided for the directory of the last file.
    struct PathGlob {
        std::wstring glob;
        std::size_t part = 0;   ///< the length of PART if it is "*PART*"
        bool holds = false;     ///< for all files of the directory
        std::wstring before{};  ///< what stands before a name and still matters
    };

    bool testPath(const std::wstring& directory, const wchar_t* name) const;
    bool hasPath(const std::wstring& directory, const wchar_t* name) const;
    void enter(const std::wstring& directory) const;
    bool asksPaths() const { return !paths_.empty() || !pathRegexes_.empty(); }
    bool asksFacts() const;
    void settleNeeds();
    bool holds(const FileDetails& file) const;

    const Options& options_;
    bool mayBeOld_;
    std::wstring criteria_;
    mutable std::vector<PathGlob> paths_;
    mutable std::wstring directory_;
    mutable std::wstring text_;
    std::vector<std::unique_ptr<ByteRegex>> pathRegexes_;
    std::vector<FileFilters> negated_;
    bool looksAtPaths_ = false;
    bool needDetails_ = false;
    bool needSystem_ = false;
};

/// The paths to leave out, as patterns over whole paths.
///
/// A text matches paths as a GLOB of --path does (text/text.h). In a text that begins at "/"
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

#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "fscan/ignore/ignore_rules.h"
#include "fscan/match/match.h"
#include "fscan/query/filters.h"
#include "fscanner/fs/fs_resultset.h"

struct stat;

namespace fscan {

class Excludes;
class FileExaminer;
class NameFilter;
class ProgressLine;
struct SearchRoot;
struct SearchRoots;

/// The matches of one root after the other: drops those that another root reports or that an
/// option leaves out, and passes the others on.
class Matches {
public:
    /// With `sameKind`, a file that has become one of another kind is left out.
    Matches(const Excludes& excludes, const NameFilter& names, const FileFilters& filters,
            IgnoreRules::Kinds ignored, FileExaminer& examiner, MatchSink& sink, FactsNeeded needed,
            bool sameKind)
        : excludes_(excludes),
          names_(names),
          filters_(filters),
          ignored_(ignored),
          examiner_(examiner),
          sink_(sink),
          needed_(needed),
          sameKind_(sameKind || filters.needDetails()) {}

    void setRoot(const SearchRoot& root);
    const SearchRoot& root() const { return *root_; }

    bool nameFits(const wchar_t* name) const;
    /// The same for a match of the engine, which has checked the criteria.
    bool confirmsName(const wchar_t* name) const;
    /// Whether `add` needs more than the path.
    bool needRecords() const { return needed_ > FactsNeeded::none || filters_.needDetails(); }
    /// The number of matches passed on.
    unsigned long long added() const { return added_; }
    /// Whether the sink wants no more.
    bool stopped() const { return stopped_; }
    /// Whether the file would be passed on if it matches: no other root reports it, and no
    /// option leaves it out. `record` may be null where none is needed.
    bool admits(const wchar_t* directory, const wchar_t* name, const fscanner::FsFileInfo* record);
    /// Whether anything in the directory may be admitted, as far as ignored files and hidden ones
    /// go: a walk need not enter the others.
    bool enters(const wchar_t* directory);
    /// Passes on a file, or a directory, that is admitted.
    void add(const wchar_t* directory, const wchar_t* name, const fscanner::FsFileInfo* record,
             bool isDirectory);
    void add(const fscanner::FsFileInfo& record);

private:
    void enter(const wchar_t* directory);
    bool select(const wchar_t* directory, const wchar_t* name, const fscanner::FsFileInfo* record,
                bool isDirectory);
    bool examine(const wchar_t* name, const fscanner::FsFileInfo& record);
    bool hasEmptiness(const FileDetails& file);
    bool needPath() const { return needed_ != FactsNeeded::count; }

    const Excludes& excludes_;
    const NameFilter& names_;
    const FileFilters& filters_;
    IgnoreRules::Kinds ignored_;
    std::optional<IgnoreRules> ignoreRules_;  // of the root, if there may be any
    FileExaminer& examiner_;
    MatchSink& sink_;
    FactsNeeded needed_;
    bool sameKind_;
    bool stopped_ = false;
    unsigned long long added_ = 0;
    const SearchRoot* root_ = nullptr;
    std::wstring directory_;
    bool owned_ = true;
    std::string path_;
    std::string name_;     // of the file that is examined
    FileDetails details_;  // what is known of it
    std::size_t prefixLength_ = 0;
};

/// Receives the engine's matches. Ignores them once the program is to end.
class MatchWriter : public fscanner::FsResultSetWriter {
public:
    MatchWriter(Matches& matches, ProgressLine& line) : matches_(matches), line_(line) {}

    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override;
    int addRecord(const fscanner::FsFileInfo& record) override;
    int close() override { return 0; }

private:
    int add(const wchar_t* path, const wchar_t* name, const fscanner::FsFileInfo* record,
            bool isDirectory);

    Matches& matches_;
    ProgressLine& line_;
};

/// Examines files that a search found, as they are now. It follows no link on the way: a
/// directory that was replaced by a link must not lead to files elsewhere.
///
/// Keeps some directories open: consecutive files share a directory, and a walk returns to a
/// directory after its subdirectories.
class FileExaminer {
public:
    enum class Found {
        there,
        gone,     ///< no file of this path any more, but perhaps a directory, unless those count
        changed,  ///< a file of another kind, or one that the search does not ask for any more
        unknown   ///< the file could not be examined
    };

    /// With `directories`, a directory is there, too. With `follow`, links are followed, and a file
    /// is what its link leads to.
    FileExaminer(bool directories, bool follow) : directoriesCount_(directories), follow_(follow) {}
    FileExaminer(const FileExaminer&) = delete;
    FileExaminer& operator=(const FileExaminer&) = delete;
    ~FileExaminer();

    /// `directory` is absolute and free of links, `name` the bytes of a name in it.
    Found examine(const std::wstring& directory, const char* name, struct stat& info);
    /// Whether the directory `name` in `directory` has no entries; nothing where it cannot be read.
    std::optional<bool> isEmpty(const std::wstring& directory, const char* name);
    /// A descriptor of the directory, valid until the next call; -1 where it cannot be opened.
    int directory(const std::wstring& path) { return enter(path).descriptor; }

    /// Counts a file that was left out for this reason.
    void leaveOut(Found found) { ++left_[static_cast<std::size_t>(found)]; }
    unsigned long long leftOut(Found found) const { return left_[static_cast<std::size_t>(found)]; }

private:
    struct Directory {
        std::wstring path;
        int descriptor = -1;
        int error = 0;  ///< of opening it
    };
    const Directory& enter(const std::wstring& path);
    int open(const std::wstring& path) const;
    int examineAt(int directory, const char* name, struct stat& info) const;

    bool directoriesCount_;
    bool follow_;
    std::array<Directory, 16> directories_;
    std::size_t current_ = 0;
    std::array<unsigned long long, 4> left_{};
};

/// Finds the real directories of matches, whose paths begin with a PATH as the user gave it.
class MatchPlace {
public:
    explicit MatchPlace(const SearchRoots& roots) : roots_(roots) {}
    /// Valid until the next call.
    const std::wstring& directoryOf(const Match& match);

private:
    const SearchRoots& roots_;
    std::string shown_;       // the directory of the last match
    std::wstring directory_;  // its real path
};

/// Passes on each match with the details that the consumer needs; leaves out those that are gone.
class DetailedMatches : public MatchSink {
public:
    DetailedMatches(const SearchRoots& roots, FileExaminer& examiner, MatchConsumer& to)
        : place_(roots), examiner_(examiner), to_(to) {}

    bool take(const Match& match) override;

private:
    MatchPlace place_;
    FileExaminer& examiner_;
    MatchConsumer& to_;
};

}  // namespace fscan

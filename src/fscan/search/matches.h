#pragma once

#include <string>

#include "fscan/match/match.h"
#include "fscan/query/filters.h"
#include "fscanner/fs/fs_resultset.h"

namespace fscan {

class Excludes;
class FileExaminer;
class NameFilter;
class ProgressLine;
struct SearchRoot;

/// The matches of one root after the other: drops those that another root reports or that an
/// option leaves out, and passes the others on.
class Matches {
public:
    /// With `sameKind`, a file that has become one of another kind is left out.
    Matches(const Excludes& excludes, const NameFilter& names, const FileFilters& filters,
            FileExaminer& examiner, MatchSink& sink, FactsNeeded needed, bool sameKind)
        : excludes_(excludes),
          names_(names),
          filters_(filters),
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
    /// Passes on a file that is admitted.
    void add(const wchar_t* directory, const wchar_t* name, const fscanner::FsFileInfo* record);

private:
    void enter(const wchar_t* directory);
    bool select(const wchar_t* directory, const wchar_t* name, const fscanner::FsFileInfo* record,
                FileFacts& facts);
    bool examine(const wchar_t* name, const fscanner::FsFileInfo& record, FileFacts& facts);
    bool needPath() const { return needed_ != FactsNeeded::count; }

    const Excludes& excludes_;
    const NameFilter& names_;
    const FileFilters& filters_;
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
    std::string name_;  // of the file that is examined
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
    int add(const wchar_t* path, const wchar_t* name, const fscanner::FsFileInfo* record);

    Matches& matches_;
    ProgressLine& line_;
};

}  // namespace fscan

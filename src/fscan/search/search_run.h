#pragma once

#include <memory>

#include "fscan/output/progress_line.h"
#include "fscan/search/completeness.h"
#include "fscan/search/file_examiner.h"
#include "fscan/search/matches.h"
#include "fscan/search/search.h"
#include "fscan/search/watcher.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

class SortedMatches;

/// Searches the roots, hands the matches on and tells what came of it. Once.
class SearchRun {
public:
    SearchRun(const Search& search, MatchConsumer& consumer, FileExaminer& examiner,
              FactsNeeded needed, Output& out);
    ~SearchRun();

    /// Returns the exit status; `incomplete` where a PATH could not even be asked for.
    /// Does not return where a signal is to end the process.
    int run(bool incomplete, Summary& summary);

private:
    int searchRoots();
    int searchRoot(const SearchRoot& root);
    int askAnyway(const SearchRoot& root);
    int ask();
    int deliver(int status);
    int overall(int status, bool incomplete) const;
    void conclude(int status, Outcome& outcome) const;
    void noteUnmetExcludes(const Outcome& outcome) const;
    bool strictlyWrong() const;
    bool readerGone() const;

    const Search& search_;
    MatchConsumer& consumer_;
    Output& out_;
    FileExaminer& examiner_;
    DetailedMatches detailed_;               ///< on the way to the consumer
    MatchSink& last_;                        ///< that, or the consumer
    std::unique_ptr<SortedMatches> sorter_;  ///< null where matches go on as they come
    std::unique_ptr<fscanner::FsRecordFilter> rest_;
    Matches matches_;
    ProgressLine line_;
    Watcher watcher_;
    MatchWriter writer_;
};

}  // namespace fscan

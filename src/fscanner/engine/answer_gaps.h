#pragma once

#include <functional>
#include <vector>

#include "fscanner/discovery/path_info.h"
#include "fscanner/engine/status.h"
#include "fscanner/fs/fs_resultset.h"

/// Gaps in an answer although no step of the query failed: paths that lead nowhere, records
/// that a writer refused, files that exclusions left out.

namespace fscanner {

class FsQuery;
class QueryPlan;

/// Paths of a query that lead to no drive, and file types that could not be told. Made before
/// the query runs.
class AnswerGaps {
public:
    /// Tells the observer of each entry of the query that leads to no drive.
    AnswerGaps(const FsQuery& query, const QueryPlan& plan);
    AnswerGaps(const AnswerGaps&) = delete;
    AnswerGaps& operator=(const AnswerGaps&) = delete;
    /// Restores the state of the query of this thread in whose middle this one ran, if any.
    ~AnswerGaps();

    /// The status of the query whose steps ended with `status`.
    Status resultOf(Status status) const;

private:
    bool missedBefore_;
    bool pathsMissing_ = false;
};

/// Passes records on to a host's writer and remembers whether it refused one, because the
/// disk is full, say: an answer that lacks records is no success.
class CheckedWriter : public FsResultSetWriter {
public:
    explicit CheckedWriter(FsResultSetWriter& to) : to_(to) {}

    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override {
        return note(to_.addRecord(path, name, size, attributes));
    }
    int addRecord(const FsFileInfo& record) override { return note(to_.addRecord(record)); }
    int close() override { return to_.close(); }

    /// The code for the host: that of `status`, or the writer's own result where the query
    /// succeeded and the writer refused a record.
    int codeOf(Status status) const {
        return status == Status::success ? failure_ : fscanner::codeOf(status);
    }

private:
    int note(int result) {
        if (result < 0) failure_ = result;
        return result;
    }

    FsResultSetWriter& to_;
    int failure_ = 0;
};

class CacheStore;

/// Tells the observer which exclusions left something out of an answer from the cache: for
/// each exclusion one directory, once. A host learns which exclusions had no effect. Does
/// nothing without an observer. The exclusions must outlive it.
class ExclusionWatch {
public:
    ExclusionWatch(const std::vector<PathInfo>& exclusions, bool caseSensitive);

    /// Notes a directory that some exclusion covers.
    void met(const wchar_t* directory);
    /// Looks for directories that the exclusions not met so far cover, among those that
    /// `isSearched`: no file in them may have matched.
    void lookUpOthers(CacheStore& store,
                      const std::function<bool(const wchar_t* directory)>& isSearched);

private:
    void lookUp(CacheStore& store, const PathInfo& exclusion,
                const std::function<bool(const wchar_t* directory)>& isSearched);
    bool covers(const PathInfo& exclusion, const wchar_t* directory) const;

    std::vector<const PathInfo*> others_;
    bool caseSensitive_;
};

}  // namespace fscanner

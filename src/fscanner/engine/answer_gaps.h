#pragma once

namespace fscanner {

class FsQuery;
class QueryPlan;

/// What a query leaves unanswered although no step of it fails: paths that lead to no
/// drive, and types that cannot be told. Made before the query runs.
class AnswerGaps {
public:
    /// Tells the observer of each entry of the query that leads to no drive.
    AnswerGaps(const FsQuery& query, const QueryPlan& plan);
    AnswerGaps(const AnswerGaps&) = delete;
    AnswerGaps& operator=(const AnswerGaps&) = delete;
    /// A query may run in the middle of another one of this thread, whose state comes back.
    ~AnswerGaps();

    /// The result of the query whose steps came to `status`.
    int resultOf(int status) const;

private:
    bool missedBefore_;
    bool pathsMissing_ = false;
};

}  // namespace fscanner

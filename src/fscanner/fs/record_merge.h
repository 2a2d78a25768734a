#pragma once

#include "fscanner/fs/naturalmerge.h"

namespace fscanner {

/// The natural merge of result files on their encoded bytes: whole runs are
/// copied, keys are compared where they lie in the mapped files, and nothing is
/// decoded. The source keeps its length, so it is rewritten in place and cannot
/// run out of disk. Damaged files are left to the callbacks.
class ResultRecordMerge : public EncodedMerge {
public:
    /// `key` is an `FsSortKey`.
    explicit ResultRecordMerge(unsigned key) : key_(key) {}
    Outcome sort(SortFiles files, bool ascending, bool caseSensitive) override;

private:
    unsigned key_;
};

}  // namespace fscanner

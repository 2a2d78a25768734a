#pragma once

#include <memory>
#include <string>

#include "fscan/match/match.h"
#include "fscan/sort/sort_order.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset_file.h"

namespace fscan {

/// Matches in a temporary file of the library's, sorted there. The file is gone
/// with the object, or however the process ends.
///
/// A byte of a text travels as the character of its number, so that texts come
/// back as they were and are sorted by their bytes in every locale.
class SpillFile {
public:
    /// A size of 4 GiB or more does not fit into the file's records, nor a time after
    /// 2038 or before 1901. The directory "//" could not be told from "/" there.
    static bool holds(const Match& match) {
        return match.facts.size >> 32 == 0 && !(match.nameAt > 1 && match.directory() == "/") &&
               match.facts.modified == static_cast<int>(match.facts.modified);
    }

    SpillFile();
    /// False when the file cannot be written.
    bool add(const Match& match);
    /// Ends the adding. Matches with equal keys are in no order.
    void sort(SortOrder order);
    /// Sets `match` to the next one; its texts are valid until the next call.
    bool next(Match& match);
    /// Whether `next` has given all that was added.
    bool complete() const { return added_ == given_; }

private:
    std::unique_ptr<fscanner::FsResultSet_OnFile> results_;
    std::unique_ptr<fscanner::FsResultSetReader> reader_;
    fscanner::FsFileInfo record_;
    std::string path_;
    std::wstring text_;
    unsigned long long added_ = 0;
    unsigned long long given_ = 0;
};

}  // namespace fscan

#pragma once

#include "fscanner/fs/naturalmerge.h"

namespace fscanner {

class AbstractFile;

/// Records of a result file as the callbacks that `NaturalMergeSort` works with:
/// a record is a heap `FsFileInfo`, released with `fs_free`.
///
/// A record that cannot be loaded whole ends the file: the position goes to the
/// end, so that nothing is read out of the middle of what is damaged.

/// Loads the next record into `*out`: 1, or 0 with a null `*out`.
int fs_read(AbstractFile* file, void** out);
/// Saves the record at the position: 1 on success.
int fs_write(AbstractFile* file, void* record);
/// Loads the next record and goes back to where it begins.
bool fs_readCurrent(AbstractFile* file, void** out);
void fs_free(void* record);

/// Whether `a op b` holds for the paths, names, path names or sizes.
bool fs_compare_path(void* a, void* b, unsigned op, bool caseSensitive);
bool fs_compare_file(void* a, void* b, unsigned op, bool caseSensitive);
bool fs_compare_pathname(void* a, void* b, unsigned op, bool caseSensitive);
bool fs_compare_size(void* a, void* b, unsigned op, bool caseSensitive);

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

#pragma once

#include <string>
#include <vector>

#include "fscanner/store/data_file.h"

/// The hash indexes of a table: the file that lists them. What `FS_Table` does with them, their
/// upkeep and their walks, is in the source of this header.

namespace fscanner {

/// One entry of a table's index list file.
struct IndexListEntry {
    std::wstring indexName;
    std::wstring fieldName;
};

/// The tag of an entry that names a hash index; others are skipped.
constexpr unsigned HASH_INDEX_TAG = 110;

/// Appends the entries of the file to `entries`. An absent or empty file has none;
/// `failed`: it is there and cannot be opened.
/// `damaged`: what stands before the damage was appended.
/// docs/formats/index-list-file.md has the bytes.
OpenResult readIndexList(const wchar_t* path, std::vector<IndexListEntry>& entries);
/// Writes the file anew.
bool writeIndexList(const wchar_t* path, const std::vector<IndexListEntry>& entries);

}  // namespace fscanner

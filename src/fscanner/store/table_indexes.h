#pragma once

#include <string>
#include <vector>

#include "fscanner/store/data_file.h"

/// The hash indexes of a table: the file that lists them. The source also holds the functions of
/// `FS_Table` that maintain and walk indexes.

namespace fscanner {

/// One entry of a table's index list file.
struct IndexListEntry {
    std::wstring indexName;
    std::wstring fieldName;
};

/// The tag of an entry for a hash index; entries with another tag are skipped.
constexpr unsigned kHashIndexTag = 110;

/// Appends the entries of the file to `entries`. An absent or empty file has none.
/// `failed`: the file is there but cannot be opened. `damaged`: the entries before the
/// damage were appended. docs/formats/index-list-file.md describes the bytes.
OpenResult readIndexList(const wchar_t* path, std::vector<IndexListEntry>& entries);
/// Creates or replaces the file.
bool writeIndexList(const wchar_t* path, const std::vector<IndexListEntry>& entries);

}  // namespace fscanner

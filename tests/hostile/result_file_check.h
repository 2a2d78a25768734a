#pragma once

#include "fs/result_file_support.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/fs/record_merge.h"

namespace fscanner {

inline std::vector<FsFileInfo> readAllRecords(FsResultSetReader& reader) {
    std::vector<FsFileInfo> records;
    reader.moveFirst();
    for (FsFileInfo record; reader.getNext(record);) records.push_back(record);
    return records;
}

struct ResultFileVerdict {
    std::vector<FsFileInfo> records;  ///< the records that could be read before sorting
    bool keptAll = false;             ///< as many could be read after it
    bool inOrder = false;
};

/// Reads a result file of any bytes to its end, and sorts it by key 1 to 4.
inline ResultFileVerdict checkResultFile(const std::string& path, const std::string& bytes,
                                         unsigned key, unsigned direction, bool caseSensitive) {
    constexpr bool (*compare[])(void*, void*, unsigned, bool) = {
        fs_compare_path, fs_compare_file, fs_compare_pathname, fs_compare_size};
    replaceFile(path, bytes);
    FsResultSetReader_OnFile reader(path.c_str());
    ResultFileVerdict verdict;
    verdict.records = readAllRecords(reader);
    reader.moveFirst();
    reader.sort(key, direction, caseSensitive);
    std::vector<FsFileInfo> sorted = readAllRecords(reader);
    verdict.keptAll = sorted.size() == verdict.records.size();
    verdict.inOrder = true;
    const unsigned op = direction == 1 ? COMPARE_LESS_EQUAL : COMPARE_GREATER_EQUAL;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        // Missing texts compare with nothing.
        FsFileInfo &a = sorted[i - 1], &b = sorted[i];
        const bool texts = a.getPath() && a.getName() && b.getPath() && b.getName();
        verdict.inOrder &= !texts || compare[key - 1](&a, &b, op, caseSensitive);
    }
    return verdict;
}

}  // namespace fscanner

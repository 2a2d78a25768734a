#pragma once

#include <vector>

#include "fscan/sum/sums.h"

namespace fscan {

class Output;
struct Options;
enum class SumBy;

/// Sums as they are printed.
struct SumTable {
    SumBy by;
    std::vector<Group> groups;  ///< the largest first
    std::size_t groupCount;     ///< of all groups, of which some may be left out
    Sum total;                  ///< of all files, whatever groups they are in
    const char* measure;        ///< "apparent" or "allocated"
    bool cached;                ///< sizes are those of a cache

    double shareOf(const Sum& sum) const {
        if (total.bytes == 0) return 0;
        return static_cast<double>(sum.bytes) / static_cast<double>(total.bytes);
    }
};

/// Prints the groups and the total, a line each, in the form that the options ask for.
void printSums(const SumTable& table, const Options& options, Output& out);

/// The word of --sum.
const char* wordOf(SumBy by);

}  // namespace fscan

#pragma once

#include <string>

namespace fscanner {

struct FsCacheCheck;

/// Compares each file that the checksums at `sumsPath` are of with them, block by block. Adds
/// what it found; false where that is a problem.
bool compareWithSums(const std::wstring& sumsPath, FsCacheCheck& result);

}  // namespace fscanner

#include "fscanner/engine/cache_check.h"

#include "fscanner/engine/cache.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

namespace {

constexpr unsigned BLOCK = BlockSums::BLOCK;

// Damaged blocks that follow each other are one problem.
void addDamagedBlocks(BlockSums& sums, FsCacheCheck& result) {
    const unsigned blocks = BlockSums::blocksOf(sums.size());
    for (unsigned block = 0; block < blocks; ++block) {
        const unsigned first = block;
        while (block < blocks && !sums.holds(block * BLOCK, 1)) ++block;
        if (block == first) continue;
        const std::uint64_t end =
            std::min<std::uint64_t>(std::uint64_t{BLOCK} * block, sums.size());
        result.problems.push_back(sums.name() + L": bytes " + std::to_wstring(first * BLOCK) +
                                  L" to " + std::to_wstring(end - 1) +
                                  L" are not what was written");
    }
}

void compare(const std::wstring& path, BlockSums& sums, FsCacheCheck& result) {
    const auto file = SysFactory::createMmFile(path.c_str());
    if (!file->open()) {
        const bool absent = presenceOf(path) == Presence::absent;
        result.problems.push_back(sums.name() + (absent ? L": missing" : L": cannot be read"));
        return;
    }
    ++result.files;
    result.bytes += file->logicalSize();
    if (!sums.open(*file)) {
        result.problems.push_back(sums.name() + L": has " + std::to_wstring(file->logicalSize()) +
                                  L" bytes instead of " + std::to_wstring(sums.size()));
    } else if (!sums.holdsAll()) {
        addDamagedBlocks(sums, result);
    }
    sums.close();
}

}  // namespace

bool compareWithSums(const std::wstring& sumsPath, FsCacheCheck& result) {
    const std::size_t before = result.problems.size();
    const std::size_t name = sumsPath.rfind(L'/') + 1;
    SumsFile sums(sumsPath);
    if (!sums.load()) {
        result.problems.push_back(sumsPath.substr(name) + L": missing or damaged");
    }
    for (const auto& [file, blocks] : sums.files())
        compare(sumsPath.substr(0, name) + file, *blocks, result);
    return result.problems.size() == before;
}

}  // namespace fscanner

#include "fscanner/store/block_sums.h"

#include <algorithm>
#include <cstring>

#include "fscanner/common/crc32.h"
#include "fscanner/common/debug.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

namespace {

constexpr unsigned SUM = BlockSums::SUM;

std::uint32_t sumAt(const std::byte* sums, unsigned block) {
    return loadInteger<std::uint32_t>(sums + std::size_t{SUM} * block);
}

}  // namespace

bool BlockSums::open(LinuxMmFile& file) {
    changed_.clear();
    checked_.assign(blocksOf(size_), false);
    unchecked_ = 0;
    if (file.logicalSize() != size_) return fail(std::min(size_, file.logicalSize()));
    file_ = &file;
    unchecked_ = size_;
    file.addWatch(*this);
    return true;
}

bool BlockSums::fail(unsigned offset) {
    if (!damaged_)
        debug("BlockSums::fail - [%ls] is not what was written, from byte %u on\n", name_.c_str(),
              offset);
    damaged_ = true;
    return false;
}

bool BlockSums::check(unsigned block) {
    const std::byte* at = file_->content().data() + std::size_t{BLOCK} * block;
    if (crc32c({at, knownLength(block)}) != sumAt(sums_, block)) return fail(block * BLOCK);
    checked_[block] = true;
    return true;
}

// Compares three blocks at a time (see `crc32cOfThree`). A changed block differs from its checksum,
// but it was compared before the change and is skipped. The last block, which may be shorter, is
// left to `holds`.
bool BlockSums::compareAll() {
    const unsigned blocks = static_cast<unsigned>(checked_.size());
    unsigned block = 0;
    for (; block + 3 < blocks; block += 3) {
        const auto sums =
            crc32cOfThree(file_->content().data() + std::size_t{BLOCK} * block, BLOCK);
        for (unsigned i = 0; i < sums.size(); ++i)
            if (!checked_[block + i] && sums[i] != sumAt(sums_, block + i))
                return fail((block + i) * BLOCK);
    }
    if (block < blocks && !holds(block * BLOCK, size_ - block * BLOCK)) return false;
    checked_.clear();
    unchecked_ = 0;
    return true;
}

bool BlockSums::beforeChange(unsigned offset, std::span<const std::byte> bytes) {
    if (!file_ || offset >= size_) return true;
    if (!holds(offset, static_cast<unsigned>(bytes.size()))) return false;
    if (changed_.empty()) changed_.resize(blocksOf(size_));
    changed_[offset / BLOCK] = true;
    return true;
}

// Whether the block's old checksum is still that of its present bytes. A last, partial block is not
// the same any more when the file has grown.
bool BlockSums::isSumCurrent(unsigned block) const {
    return block < blocksOf(size_) && (changed_.empty() || !changed_[block]) &&
           (knownLength(block) == BLOCK || file_->logicalSize() == size_);
}

void BlockSums::close() {
    if (!file_) return;
    const unsigned length = file_->logicalSize();
    // Appended bytes continue a partial block, which gets a new checksum. So its old bytes are
    // compared before.
    if (length > size_ && size_ % BLOCK != 0) holds(size_ - 1, 1);
    if (length != size_ || !changed_.empty()) {
        std::vector<std::byte> sums(std::size_t{SUM} * blocksOf(length));
        sumUp(sums);
        own_ = std::move(sums);
        sums_ = own_.data();
        size_ = length;
    }
    checked_.clear();
    changed_.clear();
    unchecked_ = 0;
    file_ = nullptr;
}

// A block that was not changed keeps its checksum, compared or not: a new one would hide damage.
void BlockSums::sumUp(std::vector<std::byte>& sums) const {
    const std::span<const std::byte> content = file_->content();
    const unsigned whole = static_cast<unsigned>(content.size()) / BLOCK;
    const auto put = [&sums](unsigned block, std::uint32_t sum) {
        storeInteger(sums.data() + std::size_t{SUM} * block, sum);
    };
    for (unsigned block = 0; std::size_t{BLOCK} * block < content.size();) {
        const std::byte* at = content.data() + std::size_t{BLOCK} * block;
        if (isSumCurrent(block)) {
            put(block, sumAt(sums_, block));
            ++block;
        } else if (block + 3 > whole || isSumCurrent(block + 1) || isSumCurrent(block + 2)) {
            const std::size_t left = content.size() - std::size_t{BLOCK} * block;
            put(block++, crc32c({at, std::min<std::size_t>(BLOCK, left)}));
        } else {
            for (const std::uint32_t sum : crc32cOfThree(at, BLOCK)) put(block++, sum);
        }
    }
}

}  // namespace fscanner

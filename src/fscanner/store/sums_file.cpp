#include "fscanner/store/sums_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "fscanner/common/crc32.h"
#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/platform/paths.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

namespace {

constexpr std::string_view kMagic = "FSBLKSUM";
constexpr std::uint32_t kVersion = 1;

}  // namespace

// ---- The file ---------------------------------------------------------------

void SumsFile::clear() {
    files_.clear();
    loaded_.reset();
}

bool SumsFile::load() {
    clear();
    loaded_ = SysFactory::createMmFile(path_.c_str());
    if (!loaded_->open()) return false;
    const std::span<const std::byte> content = loaded_->content();
    if (decode({content.data(), content.data() + content.size()})) return true;
    clear();
    return false;
}

// The checksums themselves are not covered by one. They stay in the mapping.
bool SumsFile::decode(ByteRange bytes) {
    const std::byte* const start = bytes.at();
    const std::byte* const magic = bytes.take(kMagic.size());
    std::uint32_t version = 0, block = 0, count = 0, size = 0, check = 0;
    if (!magic || std::string_view(reinterpret_cast<const char*>(magic), kMagic.size()) != kMagic)
        return false;
    if (!bytes.takeInteger(version) || version != kVersion || !bytes.takeInteger(block) ||
        block != BlockSums::kBlock || !bytes.takeInteger(count))
        return false;
    std::vector<std::pair<std::wstring, unsigned>> files;
    std::wstring name;
    for (; count > 0; --count) {
        if (!takeName(bytes, name) || !bytes.takeInteger(size)) return false;
        files.emplace_back(name, size);
    }
    const std::span<const std::byte> header(start, bytes.at());
    if (!bytes.takeInteger(check) || check != crc32c(header)) return false;
    for (const auto& [file, length] : files) {
        const std::byte* const sums =
            bytes.take(std::size_t{BlockSums::kSum} * BlockSums::blocksOf(length));
        if (!sums) return false;
        files_[file] = std::make_unique<BlockSums>(file, length, sums);
    }
    return bytes.empty();
}

bool SumsFile::write() const {
    std::vector<std::byte> bytes;
    appendBytes(bytes, std::as_bytes(std::span(kMagic)));
    for (const std::uint32_t value :
         {kVersion, std::uint32_t{BlockSums::kBlock}, static_cast<std::uint32_t>(files_.size())})
        appendInteger(bytes, value);
    for (const auto& [name, sums] : files_) {
        appendName(bytes, name);
        appendInteger(bytes, sums->size());
    }
    appendInteger(bytes, crc32c(bytes));
    for (const auto& [name, sums] : files_) appendBytes(bytes, sums->sums());
    return writeSmallFile(newPath(), bytes.data(), static_cast<unsigned>(bytes.size()));
}

bool SumsFile::sync() const {
    return syncFile(newPath());
}

bool SumsFile::writeFor(const Renames& renames) {
    rename(renames);
    return write() && sync();
}

bool SumsFile::replace() const {
    return renameFile(newPath().c_str(), path_.c_str()) == 0;
}

void SumsFile::erase() const {
    removeFile(path_.c_str());
    eraseNew();
}

void SumsFile::eraseNew() const {
    removeFile(newPath().c_str());
}

// ---- Its files --------------------------------------------------------------

BlockSums* SumsFile::find(const std::wstring& path) {
    const auto found = files_.find(lastName(path));
    return found == files_.end() ? nullptr : found->second.get();
}

BlockSums& SumsFile::add(const std::wstring& path) {
    const std::wstring name = lastName(path);
    return *(files_[name] = std::make_unique<BlockSums>(name, 0, nullptr));
}

void SumsFile::rename(const Renames& renames) {
    for (const auto& [from, to] : renames) {
        auto moved = files_.extract(lastName(from));
        if (moved.empty()) continue;
        moved.key() = lastName(to);
        moved.mapped()->rename(moved.key());
        files_.erase(moved.key());
        files_.insert(std::move(moved));
    }
}

void SumsFile::renew(const std::vector<LinuxMmFile*>& files) {
    for (LinuxMmFile* file : files)
        if (BlockSums* const sums = find(file->path())) sums->renew(*file);
}

void SumsFile::remove(const std::wstring& path) {
    files_.erase(lastName(path));
}

bool SumsFile::holds(const std::wstring& path) {
    SummedFile file;
    const bool whole = file.open(path.c_str(), this) == OpenResult::ok && file.holdsAll();
    return file && file.close() && whole;
}

bool SumsFile::takeUp(const std::wstring& path) {
    const auto file = SysFactory::createMmFile(path.c_str());
    if (!file->open()) return false;
    add(path).take(*file);
    return true;
}

bool SumsFile::damaged() const {
    return std::any_of(files_.begin(), files_.end(),
                       [](const auto& file) { return file.second->damaged(); });
}

// ---- SummedFile -------------------------------------------------------------

OpenResult SummedFile::open(const wchar_t* path, SumsFile* sums) {
    auto file = SysFactory::createMmFile(path);
    if (!file->open()) return OpenResult::failed;
    sums_ = sums ? sums->find(path) : nullptr;
    if (sums && !(sums_ && sums_->open(*file))) return OpenResult::damaged;
    file_ = std::move(file);
    return OpenResult::ok;
}

bool SummedFile::create(const wchar_t* path, SumsFile* sums) {
    auto file = SysFactory::createMmFile(path);
    if (!file->create()) return false;
    sums_ = sums ? &sums->add(path) : nullptr;
    if (sums_) sums_->open(*file);
    file_ = std::move(file);
    return true;
}

bool SummedFile::close() {
    if (sums_) sums_->close();
    return file_->close();
}

// ---- Blocks -----------------------------------------------------------------

namespace {

constexpr unsigned kSum = BlockSums::kSum;
// In blocks: what is read ahead at first, and at most.
constexpr long kFirstWindow = 16;
constexpr long kLastWindow = 2048;
// The next block of a walk is at most so many blocks away.
constexpr long kNear = 4;

std::uint32_t sumAt(const std::byte* sums, unsigned block) {
    return loadInteger<std::uint32_t>(sums + std::size_t{kSum} * block);
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
    last_ = window_ = 0;
    if (size_ > 0) file.expectRandomAccess();
    return true;
}

// A lookup goes to a few blocks here and there; the kernel, which cannot know, would read up to
// megabytes around each. So it reads what is asked for, and the blocks of a walk are asked for
// early.
void BlockSums::readAhead(long block) {
    const long moved = block - std::exchange(last_, block);
    if (moved * step_ < 0 || std::abs(moved) > kNear) {
        step_ = moved < 0 ? -1 : 1;
        window_ = 0;
        return;
    }
    if (window_ == 0) edge_ = block;
    if ((edge_ - block) * step_ > window_ / 2) return;
    window_ = std::clamp(2 * window_, kFirstWindow, kLastWindow);
    const long end = std::clamp(edge_ + step_ * window_, 0L, static_cast<long>(checked_.size()));
    if (end == edge_) return;
    const auto [first, last] = std::minmax(edge_, end);
    file_->readAhead(static_cast<unsigned>(first) * kBlock,
                     static_cast<unsigned>(last - first) * kBlock);
    edge_ = end;
}

bool BlockSums::fail(unsigned offset) {
    if (!damaged_)
        debug("BlockSums::fail - [%ls] is not what was written, from byte %u on\n", name_.c_str(),
              offset);
    damaged_ = true;
    return false;
}

bool BlockSums::check(unsigned block) {
    readAhead(block);
    const std::byte* at = file_->content().data() + std::size_t{kBlock} * block;
    if (crc32c({at, knownLength(block)}) != sumAt(sums_, block)) return fail(block * kBlock);
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
        for (unsigned i = 0; i < 3; ++i) readAhead(block + i);
        const auto sums =
            crc32cOfThree(file_->content().data() + std::size_t{kBlock} * block, kBlock);
        for (unsigned i = 0; i < sums.size(); ++i)
            if (!checked_[block + i] && sums[i] != sumAt(sums_, block + i))
                return fail((block + i) * kBlock);
    }
    if (block < blocks && !holds(block * kBlock, size_ - block * kBlock)) return false;
    checked_.clear();
    unchecked_ = 0;
    return true;
}

bool BlockSums::beforeChange(unsigned offset, std::span<const std::byte> bytes) {
    if (!file_ || offset >= size_) return true;
    if (!holds(offset, static_cast<unsigned>(bytes.size()))) return false;
    if (changed_.empty()) changed_.resize(blocksOf(size_));
    changed_[offset / kBlock] = true;
    return true;
}

// Whether the block's old checksum is still that of its present bytes. A last, partial block is not
// the same any more when the file has grown.
bool BlockSums::isSumCurrent(unsigned block) const {
    return block < blocksOf(size_) && (changed_.empty() || !changed_[block]) &&
           (knownLength(block) == kBlock || file_->logicalSize() == size_);
}

void BlockSums::close() {
    if (!file_) return;
    const unsigned length = file_->logicalSize();
    // Appended bytes continue a partial block, which gets a new checksum. So its old bytes are
    // compared before.
    if (length > size_ && size_ % kBlock != 0) holds(size_ - 1, 1);
    if (length != size_ || !changed_.empty()) {
        std::vector<std::byte> sums(std::size_t{kSum} * blocksOf(length));
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
    const unsigned whole = static_cast<unsigned>(content.size()) / kBlock;
    const auto put = [&sums](unsigned block, std::uint32_t sum) {
        storeInteger(sums.data() + std::size_t{kSum} * block, sum);
    };
    for (unsigned block = 0; std::size_t{kBlock} * block < content.size();) {
        const std::byte* at = content.data() + std::size_t{kBlock} * block;
        if (isSumCurrent(block)) {
            put(block, sumAt(sums_, block));
            ++block;
        } else if (block + 3 > whole || isSumCurrent(block + 1) || isSumCurrent(block + 2)) {
            const std::size_t left = content.size() - std::size_t{kBlock} * block;
            put(block++, crc32c({at, std::min<std::size_t>(kBlock, left)}));
        } else {
            for (const std::uint32_t sum : crc32cOfThree(at, kBlock)) put(block++, sum);
        }
    }
}

}  // namespace fscanner

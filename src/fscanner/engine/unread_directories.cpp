#include "fscanner/engine/unread_directories.h"

#include <optional>

#include "fscanner/common/crc32.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

// ---- The frame --------------------------------------------------------------

namespace {

constexpr std::size_t kChecksum = 4;
// The most that Linux writes in one call.
constexpr std::size_t kLargest = 0x7FFFF000;

std::string header(const SideFile& file, unsigned counter) {
    std::string bytes(file.magic);
    appendInteger(bytes, std::uint32_t{file.version});
    appendInteger(bytes, std::uint32_t{counter});
    return bytes;
}

}  // namespace

bool SideFile::write(unsigned counter, std::string_view content) const {
    std::string bytes = header(*this, counter);
    bytes += content;
    appendInteger(bytes, crc32(bytes));
    return bytes.size() <= kLargest &&
           writeSmallFile(path, bytes.data(), static_cast<unsigned>(bytes.size()));
}

std::optional<std::string> SideFile::read(unsigned counter) const {
    const std::optional<std::string> bytes = readSmallFile(path);
    const std::string expected = header(*this, counter);
    if (!bytes || bytes->size() < expected.size() + kChecksum) return std::nullopt;
    const std::string_view checked = std::string_view(*bytes).substr(0, bytes->size() - kChecksum);
    std::uint32_t checksum = 0;
    ByteRange(std::string_view(*bytes).substr(checked.size())).takeInteger(checksum);
    if (!checked.starts_with(expected) || checksum != crc32(checked)) return std::nullopt;
    return std::string(checked.substr(expected.size()));
}

// ---- The directories --------------------------------------------------------

namespace {

constexpr std::size_t kEntrySize = 8;
constexpr int kLargestError = 4095;  // the kernel's own limit
constexpr std::uint32_t kPlainNames = 1;

SideFile sideFile(const std::wstring& path) {
    return {path, "FSUNREAD", 1};
}

std::uint16_t codeOf(FsSkipReason reason) {
    return reason == FsSkipReason::denied ? 1 : 2;
}

std::optional<FsSkipReason> reasonOf(std::uint16_t code) {
    if (code == codeOf(FsSkipReason::denied)) return FsSkipReason::denied;
    if (code == codeOf(FsSkipReason::tooLong)) return FsSkipReason::tooLong;
    return std::nullopt;
}

}  // namespace

void UnreadDirectories::reset(unsigned unknownUpTo) {
    unread_.clear();
    unknownUpTo_ = unknownUpTo;
    plainNames_ = unknownUpTo == 0;
}

bool UnreadDirectories::load(const std::wstring& path, unsigned counter) {
    const std::optional<std::string> content = sideFile(path).read(counter);
    if (content && decode(*content, counter)) return true;
    reset(counter);
    return false;
}

bool UnreadDirectories::decode(const std::string& content, unsigned counter) {
    unread_.clear();
    ByteRange bytes{std::string_view(content)};
    std::uint32_t unknown = 0, names = 0, count = 0;
    if (!bytes.takeInteger(unknown) || !bytes.takeInteger(names) || !bytes.takeInteger(count))
        return false;
    if (unknown > counter || names > kPlainNames ||
        bytes.left() != std::uint64_t{count} * kEntrySize)
        return false;
    std::uint32_t id = 0;
    std::uint16_t code = 0, error = 0;
    for (std::uint32_t last = 0; !bytes.empty(); last = id) {
        bytes.takeInteger(id);
        bytes.takeInteger(code);
        bytes.takeInteger(error);
        const std::optional<FsSkipReason> reason = reasonOf(code);
        if (id <= last || id > counter || !reason || error > kLargestError) return false;
        unread_.emplace_hint(unread_.end(), id, Unread{*reason, error});
    }
    unknownUpTo_ = unknown;
    plainNames_ = names == kPlainNames;
    return true;
}

bool UnreadDirectories::save(const std::wstring& path, unsigned counter) const {
    std::string content;
    appendInteger(content, std::uint32_t{unknownUpTo_});
    appendInteger(content, plainNames_ ? kPlainNames : 0);
    appendInteger(content, static_cast<std::uint32_t>(unread_.size()));
    for (const auto& [id, unread] : unread_) {
        appendInteger(content, std::uint32_t{id});
        appendInteger(content, codeOf(unread.reason));
        appendInteger(content, static_cast<std::uint16_t>(unread.error));
    }
    return sideFile(path).write(counter, content);
}

}  // namespace fscanner

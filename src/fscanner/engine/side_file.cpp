#include "fscanner/engine/side_file.h"

#include "fscanner/common/crc32.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

namespace {

constexpr std::size_t kChecksum = 4;
// What one call writes.
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

}  // namespace fscanner

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace fscanner {

/// One record of a result file seen in the file's own bytes: nothing is copied
/// and nothing is decoded. Valid as long as the bytes are.
struct EncodedRecord {
    const unsigned char* begin = nullptr;
    std::size_t length = 0;  ///< of the whole record
    std::string_view path;   ///< UTF-8
    std::string_view name;
    unsigned size = 0;  ///< the file's size; 0 where the record does not know it

    const unsigned char* end() const { return begin + length; }
};

/// The number at `at`, most significant byte first.
inline unsigned encodedNumber(const unsigned char* at) {
    std::uint32_t value;
    std::memcpy(&value, at, sizeof value);
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap32(value);
    return value;
}

/// The numbers that follow a mask.
inline unsigned encodedFieldCount(unsigned mask) {
    // What the scans write; asked first because counting is a call on old processors.
    if (mask == 3) return 2;
    return static_cast<unsigned>(std::popcount(mask & 0x3FFu));
}

/// The record that begins at `bytes`, in a file that `isWellFormed` accepted.
inline EncodedRecord readWellFormed(const unsigned char* bytes) {
    const auto text = [](const unsigned char* at, unsigned count) {
        return std::string_view(reinterpret_cast<const char*>(at) + 4, count - 1);
    };
    EncodedRecord record;
    record.begin = bytes;
    const unsigned pathCount = encodedNumber(bytes);
    record.path = text(bytes, pathCount);
    const unsigned char* name = bytes + 3 + pathCount;
    const unsigned nameCount = encodedNumber(name);
    record.name = text(name, nameCount);
    const unsigned char* fields = name + 3 + nameCount + 4;
    const unsigned mask = encodedNumber(fields - 4);
    if ((mask & 2) != 0) record.size = encodedNumber(fields + 4 * (mask & 1));
    record.length = static_cast<std::size_t>(fields - bytes) + 4 * encodedFieldCount(mask);
    return record;
}

/// Whether the bytes are whole records that would be saved as the same bytes
/// after being loaded: no null text, no zero byte in a text, UTF-8 in its
/// shortest form (up to six bytes a character), nothing left over. Only such
/// bytes may stand for the records that they hold.
bool isWellFormed(std::span<const unsigned char> bytes);

/// Less than, equal to or greater than 0, as the loaded records' keys compare.
using EncodedOrder = int (*)(const EncodedRecord&, const EncodedRecord&);

inline int threeWay(std::size_t a, std::size_t b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

/// Bytes of UTF-8 in its shortest form compare as the characters do.
inline int compareBytes(std::string_view a, std::string_view b) {
    const int order = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
    return order != 0 ? order : threeWay(a.size(), b.size());
}

inline int comparePaths(const EncodedRecord& a, const EncodedRecord& b) {
    return compareBytes(a.path, b.path);
}
inline int compareNames(const EncodedRecord& a, const EncodedRecord& b) {
    return compareBytes(a.name, b.name);
}
inline int compareSizes(const EncodedRecord& a, const EncodedRecord& b) {
    return threeWay(a.size, b.size);
}
int comparePathNames(const EncodedRecord& a, const EncodedRecord& b);
/// Not case-sensitive: after `towlower`.
int compareFoldedPaths(const EncodedRecord& a, const EncodedRecord& b);
int compareFoldedNames(const EncodedRecord& a, const EncodedRecord& b);
int compareFoldedPathNames(const EncodedRecord& a, const EncodedRecord& b);

}  // namespace fscanner

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace fscanner {

/// A view of one record of a result file. It points into the bytes of the file; nothing is copied
/// or decoded. Valid as long as the bytes.
struct EncodedRecord {
    const unsigned char* begin = nullptr;
    std::size_t length = 0;  ///< of the whole record, in bytes
    std::string_view path;   ///< UTF-8
    std::string_view name;   ///< UTF-8
    unsigned size = 0;       ///< the file's size, low 32 bits; 0 if the record does not know it

    const unsigned char* end() const { return begin + length; }
};

/// The number stored at `at`, most significant byte first.
inline unsigned encodedNumber(const unsigned char* at) {
    std::uint32_t value;
    std::memcpy(&value, at, sizeof value);
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap32(value);
    return value;
}

/// How many numbers follow a mask: one for each known attribute.
inline unsigned encodedFieldCount(unsigned mask) {
    // Scans write the mask 3 (attributes and size). It is tested first because std::popcount is a
    // library call where the compiler may not use the instruction.
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

/// Whether the bytes are whole records that load and save to exactly the same bytes: no null
/// text, no zero byte in a text, UTF-8 in its shortest form (up to six bytes for a character),
/// and nothing left over. A sort may move such records as bytes, without decoding them.
bool isWellFormed(std::span<const unsigned char> bytes);

/// Negative, 0 or positive: the order of the keys of both records after loading.
using EncodedOrder = int (*)(const EncodedRecord&, const EncodedRecord&);

inline int threeWay(std::size_t a, std::size_t b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

/// For UTF-8 in its shortest form, the order of the bytes is the order of the characters.
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
/// Compare the characters after `towlower`.
int compareFoldedPaths(const EncodedRecord& a, const EncodedRecord& b);
int compareFoldedNames(const EncodedRecord& a, const EncodedRecord& b);
int compareFoldedPathNames(const EncodedRecord& a, const EncodedRecord& b);

}  // namespace fscanner

#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// Reads and writes the integers of the store's files, which are little-endian and unaligned.

template <std::unsigned_integral T>
constexpr T littleEndian(T value) {
    if constexpr (std::endian::native == std::endian::little || sizeof(T) == 1) {
        return value;
    } else {
        T swapped = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i, value >>= 8) {
            swapped = static_cast<T>(swapped << 8 | (value & 0xFF));
        }
        return swapped;
    }
}

template <std::unsigned_integral T>
T loadInteger(const std::byte* from) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return littleEndian(value);
}

template <std::unsigned_integral T>
void storeInteger(std::byte* to, T value) {
    value = littleEndian(value);
    std::memcpy(to, &value, sizeof value);
}

template <std::unsigned_integral T>
void appendInteger(std::string& bytes, T value) {
    value = littleEndian(value);
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// The unread rest of a file's content. The `take` functions never read past its end.
class ByteRange {
public:
    ByteRange() = default;
    ByteRange(const std::byte* begin, const std::byte* end) : at_(begin), end_(end) {}
    explicit ByteRange(std::string_view bytes)
        : at_(reinterpret_cast<const std::byte*>(bytes.data())), end_(at_ + bytes.size()) {}

    const std::byte* at() const { return at_; }
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    bool empty() const { return at_ == end_; }
    /// Takes one byte; the range must not be empty.
    std::byte next() { return *at_++; }

    /// Takes `count` bytes and returns their start; null, and nothing is taken, when
    /// there are fewer.
    const std::byte* take(std::size_t count) {
        if (left() < count) return nullptr;
        const std::byte* taken = at_;
        at_ += count;
        return taken;
    }

    template <std::unsigned_integral T>
    bool takeInteger(T& value) {
        const std::byte* from = take(sizeof(T));
        if (from) value = loadInteger<T>(from);
        return from != nullptr;
    }

private:
    const std::byte* at_ = nullptr;
    const std::byte* end_ = nullptr;
};

// Bytes, integers and names in the headers of the store's files. A name is stored as its length
// in bytes, followed by its characters in UTF-32LE without a terminator.

void appendBytes(std::vector<std::byte>& out, std::span<const std::byte> bytes);
void appendInteger(std::vector<std::byte>& out, std::uint32_t value);
void appendName(std::vector<std::byte>& out, std::wstring_view name);

/// Takes one name. False when it is cut, or cannot have been written by `appendName`.
bool takeName(ByteRange& in, std::wstring& name);

}  // namespace fscanner

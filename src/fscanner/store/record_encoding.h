#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/common/numbers.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

/// The layout of a table's records, which both encodings use.
struct RecordLayout {
    /// The limit of the bitmap of null flags.
    static constexpr unsigned kMaxFields = 256;

    RecordLayout() = default;
    RecordLayout(const Fields& schema, bool compactForm) : compact(compactForm) {
        for (unsigned i = 0; i < schema.count(); ++i) {
            types.push_back(static_cast<FieldType>(schema.at(i)->type()));
        }
        bitmapLength = (schema.count() + 7) / 8;
    }

    unsigned count() const { return static_cast<unsigned>(types.size()); }

    std::vector<FieldType> types;
    unsigned bitmapLength = 0;
    bool compact = false;
};

/// A stored value: the number of an integer field, or a view of a text's UTF-8 in the
/// mapped file.
struct StoredValue {
    std::uint64_t number = 0;
    std::string_view text;
};

// The two encodings of records, as policies. They differ only in how the integers of
// each type and the lengths of texts are written and read.

/// Every integer in the width of its type; lengths in two bytes.
struct FixedEncoding {
    static bool readNumber(FieldType type, ByteRange& in, std::uint64_t& value) {
        switch (type) {
            case FIELD_INT8:
                return readAs<std::uint8_t>(in, value);
            case FIELD_INT16:
                return readAs<std::uint16_t>(in, value);
            case FIELD_INT32:
                return readAs<std::uint32_t>(in, value);
            default:
                return readAs<std::uint64_t>(in, value);
        }
    }
    static bool readLength(ByteRange& in, std::uint64_t& value) {
        return readAs<std::uint16_t>(in, value);
    }

    static std::byte* writeNumber(FieldType type, std::uint64_t value, std::byte* out) {
        switch (type) {
            case FIELD_INT8:
                return writeAs<std::uint8_t>(value, out);
            case FIELD_INT16:
                return writeAs<std::uint16_t>(value, out);
            case FIELD_INT32:
                return writeAs<std::uint32_t>(value, out);
            default:
                return writeAs<std::uint64_t>(value, out);
        }
    }
    static std::byte* writeLength(std::uint16_t length, std::byte* out) {
        return writeAs<std::uint16_t>(length, out);
    }

private:
    template <typename T>
    static bool readAs(ByteRange& in, std::uint64_t& value) {
        T narrow = 0;
        const bool whole = in.takeInteger(narrow);
        value = narrow;
        return whole;
    }
    template <typename T>
    static std::byte* writeAs(std::uint64_t value, std::byte* out) {
        storeInteger(out, static_cast<T>(value));
        return out + sizeof(T);
    }
};

/// Integers and lengths in groups of seven bits, the highest first (see `compressInt`).
/// Only FIELD_INT8 is stored as one plain byte.
struct CompactEncoding {
    static bool readNumber(FieldType type, ByteRange& in, std::uint64_t& value) {
        if (type != FIELD_INT8) return readGroups(in, value);
        return FixedEncoding::readNumber(type, in, value);
    }
    static bool readLength(ByteRange& in, std::uint64_t& value) { return readGroups(in, value); }

    static std::byte* writeNumber(FieldType type, std::uint64_t value, std::byte* out) {
        if (type != FIELD_INT8) return writeGroups(value, out);
        return FixedEncoding::writeNumber(type, value, out);
    }
    static std::byte* writeLength(std::uint16_t length, std::byte* out) {
        return writeGroups(length, out);
    }

private:
    static constexpr int kMaxGroups = 10;  // groups of a 64-bit number

    static bool readGroups(ByteRange& in, std::uint64_t& value) {
        value = 0;
        for (int i = 0; i < kMaxGroups && !in.empty(); ++i) {
            const auto group = std::to_integer<unsigned>(in.next());
            value = value << 7 | group >> 1;
            if ((group & 1) == 0) return true;
        }
        return false;
    }
    static std::byte* writeGroups(std::uint64_t value, std::byte* out) {
        if (value < 128) {
            *out = static_cast<std::byte>(value << 1);
            return out + 1;
        }
        char groups[16];
        const int first = compressInt(value, groups, sizeof groups);
        const auto used = sizeof groups - static_cast<unsigned>(first);
        std::memcpy(out, groups + first, used);
        return out + used;
    }
};

/// Calls `use` with the encoding of a layout.
template <typename Use>
decltype(auto) withEncoding(const RecordLayout& layout, Use use) {
    return layout.compact ? use(CompactEncoding{}) : use(FixedEncoding{});
}

/// Takes one value from the range. False when it is cut by the end of the file, or
/// cannot have been written.
template <typename Encoding>
bool readValue(FieldType type, ByteRange& in, StoredValue& value) {
    if (type != FIELD_TEXT) return Encoding::readNumber(type, in, value.number);
    std::uint64_t length = 0;
    if (!Encoding::readLength(in, length) || length > 0xFFFF) return false;
    const std::byte* text = in.take(length);
    if (!text) return false;
    value.text = {reinterpret_cast<const char*>(text), static_cast<std::size_t>(length)};
    return true;
}

}  // namespace fscanner

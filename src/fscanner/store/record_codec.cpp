#include "fscanner/store/record_codec.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "fscanner/store/record_encoding.h"

namespace fscanner {

namespace {

constexpr std::size_t kMaxNumberBytes = 10;    // 64 bits in groups of seven
constexpr std::size_t kMaxLengthBytes = 3;     // 16 bits in groups of seven
constexpr std::size_t kMaxCharacterBytes = 6;  // `stringToUTF8` encodes 31 bits

const TextField& asText(const Field& field) {
    return static_cast<const TextField&>(field);
}

std::uint64_t numberOf(const Field& field) {
    switch (field.type()) {
        case FIELD_INT8:
            return static_cast<const Int8Field&>(field).value();
        case FIELD_INT16:
            return static_cast<const Int16Field&>(field).value();
        case FIELD_INT32:
            return static_cast<const Int32Field&>(field).value();
        default:
            return static_cast<const Int64Field&>(field).value();
    }
}

template <typename F>
void assignAs(Field& field, std::uint64_t number) {
    static_cast<F&>(field).value(static_cast<typename F::Value>(number));
}

void assignNumber(Field& field, std::uint64_t number) {
    switch (field.type()) {
        case FIELD_INT8:
            return assignAs<Int8Field>(field, number);
        case FIELD_INT16:
            return assignAs<Int16Field>(field, number);
        case FIELD_INT32:
            return assignAs<Int32Field>(field, number);
        default:
            return assignAs<Int64Field>(field, number);
    }
}

/// An upper bound of a value's length in either encoding, in bytes.
std::size_t encodedBound(const Field& field) {
    if (field.type() != FIELD_TEXT) return kMaxNumberBytes;
    return kMaxLengthBytes + kMaxCharacterBytes * asText(field).view().size();
}

/// Widens ASCII text. False when a byte is not ASCII; then `out` is unusable. The loop
/// has no early exit, so that the compiler can vectorise it.
bool widen(std::string_view text, wchar_t* out) {
    unsigned all = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        all |= byte;
        *out++ = byte;
    }
    return all < 0x80;
}

}  // namespace

bool RecordCodec::accepts(const Fields& values) const {
    if (values.count() < layout_.count()) return false;
    for (unsigned i = 0; i < layout_.count(); ++i) {
        if (values.at(i)->type() != layout_.types[i]) return false;
    }
    return true;
}

std::span<const std::byte> RecordCodec::encode(const Fields& values) {
    if (!accepts(values)) return {};
    std::size_t bound = layout_.bitmapLength;
    for (unsigned i = 0; i < layout_.count(); ++i) bound += encodedBound(*values.at(i));
    if (bound > INT_MAX || !encoded_.reserve(static_cast<unsigned>(bound))) return {};
    std::byte* out = writeBitmap(values, encoded_.data());
    for (unsigned i = 0; out && i < layout_.count(); ++i) out = write(*values.at(i), out);
    if (!out) return {};
    return {encoded_.data(), out};
}

std::span<const std::byte> RecordCodec::encodeBitmap(const Fields& values) {
    if (!encoded_.reserve(layout_.bitmapLength)) return {};
    return {encoded_.data(), writeBitmap(values, encoded_.data())};
}

std::span<const std::byte> RecordCodec::encodeValue(const Field& value) {
    const std::size_t bound = encodedBound(value);
    if (bound > INT_MAX || !encoded_.reserve(static_cast<unsigned>(bound))) return {};
    const std::byte* end = write(value, encoded_.data());
    if (!end) return {};
    return {encoded_.data(), end};
}

std::byte* RecordCodec::writeBitmap(const Fields& values, std::byte* out) const {
    char bitmap[RecordLayout::kMaxFields / 8] = {};
    for (unsigned i = 0; i < layout_.count(); ++i) {
        if (values.at(i)->isNull()) setBit(static_cast<unsigned char>(i), bitmap);
    }
    std::memcpy(out, bitmap, layout_.bitmapLength);
    return out + layout_.bitmapLength;
}

std::byte* RecordCodec::write(const Field& value, std::byte* out) {
    return withEncoding(layout_,
                        [&](auto encoding) { return writeValue<decltype(encoding)>(value, out); });
}

template <typename Encoding>
std::byte* RecordCodec::writeValue(const Field& value, std::byte* out) {
    if (value.type() == FIELD_TEXT) return writeText<Encoding>(asText(value).view(), out);
    return Encoding::writeNumber(static_cast<FieldType>(value.type()), numberOf(value), out);
}

/// A text's length is stored modulo 65536, and only so many bytes of the text. So a text
/// of more than 65535 bytes is cut.
template <typename Encoding>
std::byte* RecordCodec::writeText(std::wstring_view text, std::byte* out) {
    if (isAscii(text)) {
        const auto length = static_cast<std::uint16_t>(text.size());
        out = Encoding::writeLength(length, out);
        return std::transform(text.begin(), text.begin() + length, out,
                              [](wchar_t c) { return static_cast<std::byte>(c); });
    }
    if (stringToUTF8(narrow_, text.data()) == 0) return nullptr;
    const auto* utf8 = reinterpret_cast<const char*>(narrow_.data());
    const auto length = static_cast<std::uint16_t>(std::strlen(utf8));
    out = Encoding::writeLength(length, out);
    std::memcpy(out, utf8, length);
    return out + length;
}

DecodeResult RecordCodec::decode(ByteRange record, Fields& values, std::size_t* length) {
    return withEncoding(layout_, [&](auto encoding) {
        return decodeAs<decltype(encoding)>(record, values, nullptr, length);
    });
}

DecodeResult RecordCodec::decodeSome(ByteRange record, Fields& values,
                                     const std::vector<bool>& wanted) {
    return withEncoding(layout_, [&](auto encoding) {
        return decodeAs<decltype(encoding)>(record, values, &wanted, nullptr);
    });
}

template <typename Encoding>
DecodeResult RecordCodec::decodeAs(ByteRange record, Fields& values,
                                   const std::vector<bool>* wanted, std::size_t* length) {
    const std::byte* start = record.at();
    if (!accepts(values)) return DecodeResult::mismatch;
    if (!record.take(layout_.bitmapLength)) return DecodeResult::damaged;
    const unsigned count = wanted ? static_cast<unsigned>(wanted->size()) : layout_.count();
    StoredValue value;
    for (unsigned i = 0; i < count; ++i) {
        if (!readValue<Encoding>(layout_.types[i], record, value)) return DecodeResult::damaged;
        if (wanted && !(*wanted)[i]) continue;
        if (!decodeValue(value, *values.at(i))) return DecodeResult::damaged;
    }
    if (length) *length = static_cast<std::size_t>(record.at() - start);
    return DecodeResult::ok;
}

bool RecordCodec::locate(ByteRange record, std::vector<StoredValue>& values,
                         std::size_t& length) const {
    const std::byte* start = record.at();
    if (!record.take(layout_.bitmapLength)) return false;
    values.resize(layout_.count());
    const bool whole = withEncoding(layout_, [&](auto encoding) {
        for (unsigned i = 0; i < layout_.count(); ++i) {
            if (!readValue<decltype(encoding)>(layout_.types[i], record, values[i])) return false;
        }
        return true;
    });
    length = static_cast<std::size_t>(record.at() - start);
    return whole;
}

bool RecordCodec::decodeValue(const StoredValue& stored, Field& value) {
    if (value.type() == FIELD_TEXT) {
        return assignText(static_cast<TextField&>(value), stored.text);
    }
    assignNumber(value, stored.number);
    return true;
}

bool RecordCodec::assignText(TextField& field, std::string_view text) {
    const auto room = static_cast<unsigned>(text.size()) + 1;
    if (!wide_.reserve(room)) return false;
    if (widen(text, wide_.data())) {
        field.assign({wide_.data(), text.size()});
        return true;
    }
    // utf8ToWideChar needs a terminated text.
    if (!narrow_.reserve(room)) return false;
    std::memcpy(narrow_.data(), text.data(), text.size());
    narrow_.data()[text.size()] = 0;
    const unsigned length = utf8ToWideChar(wide_.data(), room, narrow_.data());
    field.assign({wide_.data(), length});
    return true;
}

}  // namespace fscanner

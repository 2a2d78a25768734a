#pragma once

#include <span>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/common/utf8.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/record_encoding.h"

namespace fscanner {

enum class DecodeResult {
    ok,
    mismatch,  ///< the list of values has not the table's fields
    damaged,   ///< the bytes cannot be a record
};

/// Turns lists of values into the bytes of a record and back:
///
///     | null flags | value | value | ...
///      1 bit each   in the order of the schema
///
/// Holds the room for conversions between two records, so that nothing is
/// allocated for one. One thread at a time.
class RecordCodec {
public:
    void setLayout(const RecordLayout& layout) { layout_ = layout; }
    const RecordLayout& layout() const { return layout_; }

    /// The bytes of a record, valid until the next call; empty when `values` has
    /// not the table's fields, or when memory runs out.
    std::span<const std::byte> encode(const Fields& values);
    /// The pieces that an update in place writes one by one.
    std::span<const std::byte> encodeBitmap(const Fields& values);
    std::span<const std::byte> encodeValue(const Field& value);

    /// Decodes the record at the start of `record`, which goes on to the end of
    /// the file, into `values`. No field is null afterwards, whatever the record's
    /// null flags say: each gets a value (deliberate). `length`, if given, gets the
    /// record's length.
    DecodeResult decode(ByteRange record, Fields& values, std::size_t* length = nullptr);
    /// The same for the fields whose flag in `wanted` is set, and none behind the last.
    DecodeResult decodeSome(ByteRange record, Fields& values, const std::vector<bool>& wanted);

    /// The same without decoding: where each value lies. False when the bytes cannot be
    /// a record. `decodeValue` decodes one of them.
    bool locate(ByteRange record, std::vector<StoredValue>& values, std::size_t& length) const;
    bool decodeValue(const StoredValue& stored, Field& value);

    /// Whether `values` can be stored and read back: the same classes in the same order.
    bool accepts(const Fields& values) const;

private:
    template <typename Encoding>
    std::byte* writeValue(const Field& value, std::byte* out);
    template <typename Encoding>
    std::byte* writeText(std::wstring_view text, std::byte* out);
    std::byte* writeBitmap(const Fields& values, std::byte* out) const;
    std::byte* write(const Field& value, std::byte* out);
    template <typename Encoding>
    DecodeResult decodeAs(ByteRange record, Fields& values, const std::vector<bool>* wanted,
                          std::size_t* length);
    bool assignText(TextField& field, std::string_view text);

    RecordLayout layout_;
    DynamicBuffer<std::byte> encoded_;
    DynamicBuffer<unsigned char> narrow_;
    DynamicBuffer<wchar_t> wide_;
};

}  // namespace fscanner

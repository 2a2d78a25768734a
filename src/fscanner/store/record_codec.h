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
    mismatch,  ///< the list of values does not have the table's fields
    damaged,   ///< the bytes cannot be a record, or memory ran out
};

/// Encodes lists of values as the bytes of a record, and decodes them:
///
///     | null flags | value | value | ...
///      1 bit each   in the order of the schema
///
/// Keeps its buffers, so that no memory is allocated per record. One thread at a time.
class RecordCodec {
public:
    void setLayout(const RecordLayout& layout) { layout_ = layout; }
    const RecordLayout& layout() const { return layout_; }

    /// The bytes of a record, valid until the next call. Empty when `values` does not have
    /// the table's fields, and when memory runs out.
    std::span<const std::byte> encode(const Fields& values);
    /// The null flags or one value, for an update in place. Otherwise like `encode`.
    std::span<const std::byte> encodeBitmap(const Fields& values);
    std::span<const std::byte> encodeValue(const Field& value);

    /// Decodes the record at the start of `record` into `values`. `record` may be longer:
    /// it usually extends to the end of the file. Deliberate: the null flags are ignored,
    /// and no field is null afterwards. `length`, if given, gets the record's length.
    DecodeResult decode(ByteRange record, Fields& values, std::size_t* length = nullptr);
    /// Decodes only the fields i with `wanted[i]`; `wanted` may be shorter than the schema.
    DecodeResult decodeSome(ByteRange record, Fields& values, const std::vector<bool>& wanted);

    /// Finds each value in the record without decoding it. False when the bytes cannot be
    /// a record. `decodeValue` decodes one value.
    bool locate(ByteRange record, std::vector<StoredValue>& values, std::size_t& length) const;
    bool decodeValue(const StoredValue& stored, Field& value);

    /// Whether `values` has the table's field types in the same order; it may have more fields.
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

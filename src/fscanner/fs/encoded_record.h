#pragma once

#include <cstddef>
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

/// The record that begins at `bytes`, in a file that `isWellFormed` accepted.
EncodedRecord readWellFormed(const unsigned char* bytes);

/// Whether the bytes are whole records that would be saved as the same bytes
/// after being loaded: no null text, no zero byte in a text, UTF-8 in its
/// shortest form (up to six bytes a character), nothing left over. Only such
/// bytes may stand for the records that they hold.
bool isWellFormed(std::span<const unsigned char> bytes);

/// Less than, equal to or greater than 0, as the loaded records' texts (code
/// point by code point, folded or not) or sizes compare.
using EncodedOrder = int (*)(const EncodedRecord&, const EncodedRecord&);

/// The order of an `FsSortKey`; null for any other key.
EncodedOrder encodedOrder(unsigned key, bool caseSensitive);

}  // namespace fscanner

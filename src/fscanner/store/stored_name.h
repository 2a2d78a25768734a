#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fscanner/store/bytes.h"

/// Numbers and names in the headers of the store's files. A name is its length in
/// bytes, then UTF-32LE without a terminator.
namespace fscanner {

void appendInteger(std::vector<std::byte>& out, std::uint32_t value);
void appendName(std::vector<std::byte>& out, std::wstring_view name);

/// False when the name is cut, or is nothing that `appendName` writes.
bool takeName(ByteRange& in, std::wstring& name);

}  // namespace fscanner

#include "fscanner/store/bytes.h"

namespace fscanner {

namespace {

constexpr std::size_t kCharacter = 4;
static_assert(sizeof(wchar_t) == kCharacter);

}  // namespace

void appendBytes(std::vector<std::byte>& out, std::span<const std::byte> bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

void appendInteger(std::vector<std::byte>& out, std::uint32_t value) {
    std::byte bytes[sizeof value];
    storeInteger(bytes, value);
    appendBytes(out, bytes);
}

void appendName(std::vector<std::byte>& out, std::wstring_view name) {
    appendInteger(out, static_cast<std::uint32_t>(name.size() * kCharacter));
    for (const wchar_t c : name) appendInteger(out, static_cast<std::uint32_t>(c));
}

bool takeName(ByteRange& in, std::wstring& name) {
    std::uint32_t length = 0;
    if (!in.takeInteger(length) || length % kCharacter != 0) return false;
    const std::byte* characters = in.take(length);
    if (!characters) return false;
    name.clear();
    for (const std::byte* end = characters + length; characters < end; characters += kCharacter) {
        name += static_cast<wchar_t>(loadInteger<std::uint32_t>(characters));
    }
    return name.find(L'\0') == name.npos;
}

}  // namespace fscanner

// A pattern against a text: the compiled form, on characters and on bytes, the matcher and a
// table of all prefixes agree; path patterns and comparisons end.

#include <clocale>
#include <cstring>
#include <cwctype>
#include <vector>

#include "fscanner/common/pattern.h"
#include "fscanner/common/wildcard.h"
#include "fuzz.h"

namespace {

using namespace fscanner;

wchar_t folded(wchar_t c, bool caseSensitive) {
    return caseSensitive ? c : static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

bool matchesByTable(const std::wstring& pattern, const std::wstring& text, bool caseSensitive) {
    std::vector<char> row(text.size() + 1);
    row[0] = 1;
    for (const wchar_t p : pattern) {
        char diagonal = row[0];
        row[0] = p == L'*' && row[0];
        for (std::size_t i = 1; i <= text.size(); ++i) {
            const char above = row[i];
            const bool same =
                p == L'?' || folded(p, caseSensitive) == folded(text[i - 1], caseSensitive);
            row[i] = p == L'*' ? (row[i] || row[i - 1]) : (diagonal && same);
            diagonal = above;
        }
    }
    return row.back() != 0;
}

/// With blocks behind the text, and without.
void checkBytes(const CompiledPattern& pattern, const std::wstring& text, bool expected) {
    constexpr std::size_t behind = 48;
    std::vector<unsigned char> buffer(6 * text.size() + 1 + behind, '*');
    stringToUTF8(buffer.data(), static_cast<unsigned>(buffer.size() - behind), text.c_str());
    const char* const bytes = reinterpret_cast<const char*>(buffer.data());
    const std::size_t size = std::strlen(bytes);
    for (const std::size_t readable : {size, size + behind}) {
        const Verdict verdict = pattern.judge({bytes, size, readable});
        require(verdict == Verdict::unsure || (verdict == Verdict::match) == expected);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::wstring pattern = wideText(input.until('\n'));
    const std::wstring text = wideText(input.rest());
    for (const bool caseSensitive : {true, false}) {
        const bool expected = matchesByTable(pattern, text, caseSensitive);
        require((wildvccmp(pattern.c_str(), text.c_str(), caseSensitive) != 0) == expected);
        const CompiledPattern compiled(pattern, caseSensitive);
        require(compiled.matches(text) == expected);
        if (compiled.judgesBytes()) checkBytes(compiled, text, expected);
        for (const bool recursive : {true, false})
            wildvcpathcmp(pattern.c_str(), text.c_str(), recursive, caseSensitive);
        for (unsigned op = 0; op < 7; ++op)
            checkSimpleExpression(text.c_str(), op, pattern.c_str(), caseSensitive);
    }
    return 0;
}

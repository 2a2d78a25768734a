#include "fscanner/common/utf8.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "support/scoped_locale.h"

using namespace fscanner;

namespace {

void expectRoundTrip(const std::string& bytes) {
    ASSERT_EQ(toMultibyte(toWide(bytes)), bytes);
    const std::unique_ptr<wchar_t[]> wide(myMbsToWcs(bytes.c_str()));
    const std::unique_ptr<char[]> back(myWcsToMbs(wide.get()));
    ASSERT_STREQ(back.get(), bytes.c_str());
}

// In the two locales that always exist, and in others where they are installed:
// single-byte ones, and those whose characters have several bytes, some of them ASCII.
TEST(Names, KeepTheirBytes) {
    for (const char* name : {"C", "C.UTF-8", "de_DE.ISO-8859-1", "tr_TR.ISO-8859-9", "ja_JP.EUC-JP",
                             "zh_HK.BIG5-HKSCS", "zh_CN.GB18030"}) {
        const ScopedLocale locale(name);
        if (!locale.available()) continue;
        SCOPED_TRACE(name);
        for (int pair = 0; pair < 65536; ++pair)
            expectRoundTrip({static_cast<char>(pair / 256), static_cast<char>(pair % 256)});
        for (const char* bytes :
             {"\xED\xB2\x80", "\xED\xA0\x80\xED\xB0\x80", "\xF4\x90\x80\x80", "\xF7\xBF\xBF\xBF",
              "\xFC\x84\x80\x80\x80\x80", "\xC0\xAF", "\xE0\x80\xAF", "plain, eight or more\xE9!",
              "\xF0\x9F\x98\x80 \xF0\x9F\x98"}) {
            expectRoundTrip(bytes);
        }
    }
}

TEST(Utf8Names, DecodeStrictly) {
    const ScopedLocale locale("C.UTF-8");
    ASSERT_TRUE(locale.available());
    const std::pair<const char*, std::wstring> cases[] = {
        {"h\xC3\xA9", L"h\xE9"},
        {"\xDF\xBF\xE0\xA0\x80", L"\x7FF\x800"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\x10000\x10FFFF"},
        {"\xED\x9F\xBF\xEE\x80\x80", L"\xD7FF\xE000"},
        {"\xC3", L"\xDCC3"},                                // cut
        {"\xC3(", L"\xDCC3("},                              // no continuation
        {"\xE2\x82\xC3\xA9", L"\xDCE2\xDC82\xE9"},          // cut by a good character
        {"\xC1\xBF", L"\xDCC1\xDCBF"},                      // overlong
        {"\xE0\x9F\xBF", L"\xDCE0\xDC9F\xDCBF"},            // overlong
        {"\xF0\x8F\xBF\xBF", L"\xDCF0\xDC8F\xDCBF\xDCBF"},  // overlong
        {"\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},            // a surrogate: an escape's own form
        {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},  // above U+10FFFF
        {"\xF8\x88\x80\x80\x80", L"\xDCF8\xDC88\xDC80\xDC80\xDC80"},
        {"\xFF", L"\xDCFF"},
    };
    for (const auto& [bytes, wide] : cases) {
        EXPECT_EQ(toWide(bytes), wide);
        EXPECT_EQ(toMultibyte(wide), bytes);
    }
}

TEST(NameText, OfTheCLocaleLosesNothing) {
    const ScopedLocale locale("C");
    std::wstring wide = L"/a/";
    appendWide(wide, "\xC3\xA9");
    EXPECT_EQ(wide, L"/a/\xDCC3\xDCA9");
    // Characters that the locale cannot encode are written as UTF-8.
    std::string bytes = "/a/";
    appendMultibyte(bytes, L"\xE9\x20AC\x1F600");
    EXPECT_EQ(bytes, "/a/\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(myMbsToWcs(nullptr), nullptr);
    EXPECT_EQ(myWcsToMbs(nullptr), nullptr);
}

TEST(Utf8, EncodesUpToSixBytesAndReplacesTheRest) {
    for (const auto& [c, expected] : {std::pair<wchar_t, const char*>(0x7F, "\x7F"),
                                      {0x80, "\xC2\x80"},
                                      {0x7FF, "\xDF\xBF"},
                                      {0x800, "\xE0\xA0\x80"},
                                      {0xDC80, "\xED\xB2\x80"},
                                      {0xFFFF, "\xEF\xBF\xBF"},
                                      {0x10000, "\xF0\x90\x80\x80"},
                                      {0x1FFFFF, "\xF7\xBF\xBF\xBF"},
                                      {0x200000, "\xF8\x88\x80\x80\x80"},
                                      {0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"},
                                      {0x4000000, "\xFC\x84\x80\x80\x80\x80"},
                                      {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
                                      {-1, "\xEF\xBF\xBD"}}) {
        const wchar_t text[] = {c, 0};
        unsigned char out[8];
        EXPECT_EQ(stringToUTF8(out, sizeof out, text), 1u);
        const std::string bytes = reinterpret_cast<char*>(out);
        EXPECT_EQ(bytes, expected);
        EXPECT_EQ(utf8Length(c), bytes.size());

        wchar_t back[2];
        EXPECT_EQ(utf8ToWideChar(back, 2, out), 1u);
        EXPECT_EQ(back[0], c > 0 ? c : 0xFFFD) << expected;
    }
}

TEST(Utf8, SkipsWhatDoesNotFit) {
    unsigned char out[6] = "?????";
    EXPECT_EQ(stringToUTF8(out, 4, L"ab\x20AC\xE9z"), 3u);  // only the z fits
    EXPECT_STREQ(reinterpret_cast<char*>(out), "abz");
    EXPECT_EQ(out[4], '?');
    EXPECT_EQ(stringToUTF8(out, 1, L"a"), 0u);
    EXPECT_EQ(out[0], 0);
    out[0] = '?';
    EXPECT_EQ(stringToUTF8(out, 0, L"a"), 0u);
    EXPECT_EQ(out[0], '?');

    DynamicBuffer<unsigned char> buffer;
    EXPECT_EQ(stringToUTF8(buffer, L"\x20AC\x7FFFFFFF"), 2u);
    EXPECT_STREQ(reinterpret_cast<char*>(buffer.data()), "\xE2\x82\xAC\xFD\xBF\xBF\xBF\xBF\xBF");
    EXPECT_EQ(buffer.size(), 13u);
    EXPECT_EQ(stringToUTF8(buffer, L"x"), 1u);
    EXPECT_EQ(buffer.size(), 13u);  // it never shrinks
}

TEST(Utf8, DecodesWithoutValidating) {
    const std::pair<const char*, std::wstring> cases[] = {
        {"a\xC3\xA9", L"a\xE9"},
        {"\x85z", {5, L'z'}},                 // a stray continuation: its low six bits
        {"\xC1\x81", L"A"},                   // overlong
        {"\xC3zy", {(3 << 6) | 0x3A, L'y'}},  // any byte continues
        {"\xFE\x81\x80\x80\x80\x80\x80", {1 << 30}},
        {"\xE2\x82", {(2 << 6) | 2}},  // cut by the terminator: the bits so far
        {"x\xFC", {L'x', 0}},
    };
    for (const auto& [text, wide] : cases) {
        // The buffer has exactly the length of the text, so that a read behind it is seen.
        const std::vector<unsigned char> bytes(text, text + std::strlen(text) + 1);
        wchar_t out[8];
        const unsigned count = utf8ToWideChar(out, 8, bytes.data());
        EXPECT_EQ(std::wstring_view(out, count), wide) << testing::PrintToString(text);
        EXPECT_EQ(out[count], 0);
    }
    wchar_t out[3] = {L'?', L'?', L'?'};
    EXPECT_EQ(utf8ToWideChar(out, 2, reinterpret_cast<const unsigned char*>("\xC3\xA9z")), 1u);
    EXPECT_STREQ(out, L"\xE9");
    EXPECT_EQ(out[2], L'?');
    EXPECT_EQ(utf8ToWideChar(out, 0, reinterpret_cast<const unsigned char*>("a")), 0u);
}

}  // namespace

#include "fscanner/common/numbers.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <string>

#include "fscanner/common/common.h"
#include "fscanner/common/time.h"

using namespace fscanner;

namespace {

// The bytes are those in a table's records.
TEST(CompactIntegers, ComeBack) {
    for (int shift = 0; shift < 64; ++shift) {
        for (const unsigned long long low : {0ULL, 1ULL, 0x55ULL, 1ULL << shift}) {
            const unsigned long long value = (1ULL << shift) + low;
            const int length = static_cast<int>(std::bit_width(value | 1) + 6) / 7;
            char buffer[] = "###########";
            ASSERT_EQ(compressInt(value, buffer, 11), 11 - length) << value;
            EXPECT_EQ(decompressInt(buffer + 11 - length), value);
            EXPECT_EQ(buffer[10 - length], '#') << value;
            EXPECT_EQ(buffer[11], 0) << value;
        }
    }
}

TEST(BitMaps, StartAtTheTopBit) {
    char bits[32] = {};
    for (const int bit : {0, 9, 255}) setBit(static_cast<unsigned char>(bit), bits);
    EXPECT_EQ(static_cast<unsigned char>(bits[0]), 0x80);
    EXPECT_EQ(bits[1], 0x40);
    EXPECT_EQ(bits[31], 0x01);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(checkBit(static_cast<unsigned char>(i), bits), i == 0 || i == 9 || i == 255) << i;
    }
}

TEST(Hash, CountsTheTerminatorAndSigns) {
    EXPECT_EQ(hash(L"", 1000), 0);
    EXPECT_EQ(hash(L"a", 1'000'000), 97 * 37);
    EXPECT_EQ(hash(L"ab", 1'000'000), (97 * 37 + 98) * 37);
    EXPECT_EQ(hash(0xFFFFFFFFu, 10), 9);            // -1
    EXPECT_EQ(hash(0x80000000u, 10), 2);            // -2147483648
    EXPECT_EQ(hash(0x80000000u, 8), 0);             // no remainder: not n
    EXPECT_EQ(hash(L"directory.name", 1009), 475);  // 32 bits wrap
}

TEST(Decimal, WritesDigits) {
    wchar_t out[21];
    for (const unsigned v : {0u, 10u, UINT_MAX}) EXPECT_EQ(wcs_itoa(v, out), std::to_wstring(v));
    EXPECT_EQ(wcs_itoa64(ULLONG_MAX, out), std::to_wstring(ULLONG_MAX));
    EXPECT_EQ(wcs_itoa(7, nullptr), std::wstring(L"7"));
    EXPECT_EQ(wcs_itoa64(7, nullptr), std::wstring(L"7"));
}

TEST(Time, CutsEachEnd) {
    EXPECT_EQ(elapsedTime({1, 999'999}, {1, 999'999}), 0);
    EXPECT_EQ(elapsedTime({1, 1'999}, {1, 2'000}), 0);  // in one second: the difference is cut
    EXPECT_EQ(elapsedTime({1, 1'999}, {2, 2'000}), 1001);
    EXPECT_EQ(elapsedTime({1, 999'999}, {3, 0}), 1001);
}

TEST(Time, TicksWrapAt32Bits) {
    setClockSource([]() -> timeval { return {4'294'967, 295'999}; });
    EXPECT_EQ(getTickCount(), 0xFFFFFFFFu);
    EXPECT_EQ(getCurrentTime(), 4'294'967);
    setClockSource([]() -> timeval { return {4'294'967, 297'000}; });
    EXPECT_EQ(getTickCount(), 1u);
    setClockSource(nullptr);
    EXPECT_NEAR(static_cast<double>(getCurrentTime()), static_cast<double>(std::time(nullptr)), 60);
}

TEST(Evaluator, EvaluatesOrFails) {
    const std::pair<const wchar_t*, char> cases[] = {
        // '0', '1', or 'e' for an error.
        {L"1&(0|1)", '1'}, {L"0|1&0", '0'}, {L"1|0&0", '1'}, {L"0&0|1", '1'},  // & binds closer
        {L"!0|1", '0'},    {L"!0&0", '1'},  {L"!!1", '1'},  // "!" takes all to its right
        {L"(!0)|1", '1'},  {L"1&", 'e'},    {L"10", 'e'},    {L"", 'e'},      {L"(1", 'e'},
        {L"1)", 'e'},      {L"()", 'e'},    {L"1|x", 'e'},   {L"|1", 'e'},    {L"1", '1'},
    };
    Evaluator evaluator;  // one for all: an error must not stay
    const auto verdictOf = [&](const wchar_t* text) {
        const bool value = evaluator.execute(text);
        return evaluator.error() ? 'e' : value ? '1' : '0';
    };
    for (const auto& [text, verdict] : cases) EXPECT_EQ(verdictOf(text), verdict) << text;
    EXPECT_EQ(verdictOf(nullptr), 'e');
    std::wstring deep(900, L'(');
    deep.append(1, L'1').append(900, L')');
    EXPECT_EQ(verdictOf(deep.c_str()), '1');
    for (const wchar_t c : {L'(', L'!'})
        EXPECT_EQ(verdictOf(std::wstring(5'000'000, c).c_str()), 'e');
}

}  // namespace

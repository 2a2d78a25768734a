#include "fscanner/common/numbers.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "fscanner/common/common.h"
#include "fscanner/common/time.h"

using namespace fscanner;

namespace {

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
    // '0', '1', or 'e' for an error. "&" binds closer, and "!" takes all to its right.
    const std::pair<const wchar_t*, char> cases[] = {
        {L"1&(0|1)", '1'}, {L"1|0&0", '1'}, {L"0&0|1", '1'}, {L"!0|1", '0'},
        {L"(!0)|1", '1'},  {L"1&", 'e'},    {L"10", 'e'},    {L"", 'e'},
        {L"(1", 'e'},      {L"1)", 'e'},    {L"1|x", 'e'},   {L"1", '1'},
    };
    Evaluator evaluator;  // one for all: an error must not stay
    const auto verdictOf = [&](const wchar_t* text) {
        const bool value = evaluator.execute(text);
        return evaluator.error() ? 'e' : value ? '1' : '0';
    };
    for (const auto& [text, verdict] : cases) EXPECT_EQ(verdictOf(text), verdict) << text;
    std::wstring deep(900, L'(');
    deep.append(1, L'1').append(900, L')');
    EXPECT_EQ(verdictOf(deep.c_str()), '1');
    for (const wchar_t c : {L'(', L'!'})
        EXPECT_EQ(verdictOf(std::wstring(5'000'000, c).c_str()), 'e');
}

}  // namespace

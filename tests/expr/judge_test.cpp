#include <gtest/gtest.h>

#include <random>

#include "expr/judge.h"
#include "fscanner/common/utf8.h"

namespace fscanner {
namespace {

/// Makes criteria and records at random, from a few values that meet often.
class Generator {
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    unsigned below(unsigned n) {
        return std::uniform_int_distribution<unsigned>(0, n - 1)(random_);
    }

    template <std::size_t N>
    const wchar_t* pick(const wchar_t* const (&choices)[N]) {
        return choices[below(static_cast<unsigned>(N))];
    }

    std::wstring number(unsigned depth) {
        if (depth == 0 || below(5) == 0) {
            return pick({L"0", L"1", L"2", L"5", L"2147483647", L"[BYTE]", L"[SHORT]", L"[PATHID]",
                         L"[BIG]", L"limit", L"length([NAME])"});
        }
        switch (below(8)) {
            case 0:
                return pick({L"-", L"+", L"!", L"--"}) + number(depth - 1);
            case 1:
                return L"(" + number(depth - 1) + L")";
            case 2:
                return number(depth - 1) + pick({L"&&", L"||"}) + number(depth - 1);
            case 3:
                return L"length(" + text(depth - 1) + L")";
            case 4:
                return L"(" + text(depth - 1) + relation() + text(depth - 1) + L")";
            case 5:
                return number(depth - 1) + relation() + number(depth - 1);
            case 6:
                return L"(" + number(depth - 1) + pick({L"+))", L"*))", L")"});
            default:
                return number(depth - 1) + pick({L"+", L"-", L"*", L"/", L"&", L"|", L" | "}) +
                       number(depth - 1);
        }
    }

    std::wstring text(unsigned depth) {
        if (depth == 0 || below(3) != 0) {
            return pick({L"\"\"", L"\"a\"", L"\"a.txt\"", L"\"A.TXT\"", L"\"*.txt\"", L"\"a*\"",
                         L"\"?.t*t\"", L"\"*\"", L"\"fail\"", L"[NAME]", L"[NAME]", L"[TITLE]",
                         L"wanted"});
        }
        if (below(3) == 0) return L"join(" + number(depth - 1) + L"," + text(0) + L")";
        return text(depth - 1) + L"+" + (below(2) ? L"(" + text(depth - 1) + L")" : text(0));
    }

    void fill(SampleRecord& record) {
        record.name(pick({L"", L"a.txt", L"A.txt", L"a", L"b.TXT", L"*.txt", L"a?txt", L"fail"}));
        record.title(std::wstring(below(2) ? 200 : 3, below(4) ? L'a' : L'*'));
        const unsigned long long numbers[] = {0,          1,    5, 0x80000000U, 4294967296ULL,
                                              1ULL << 63, ~0ULL};
        record.big(numbers[below(7)]);
        record.pathId(static_cast<unsigned>(numbers[below(7)]));
        record.fields.as<Int8Field>(2)->value(static_cast<unsigned char>(below(256)));
    }

private:
    std::wstring relation() { return pick({L"==", L"!=", L"==", L"<", L">", L"<=", L">="}); }

    std::mt19937 random_;
};

/// Compares the last check's value, and the commands that it ran, with the judge's.
void expectSame(Criteria& criteria, int result, const SampleRecord& record, bool caseSensitive,
                bool reading) {
    Judge judge(record, caseSensitive, reading);
    const auto verdict = judge.evaluate(criteria.evaluator.tree().getRoot());
    EXPECT_EQ(criteria.join.calls, judge.calls());
    const bool compiles = criteria.evaluator.compileError().text.empty();
    EXPECT_EQ(criteria.evaluator.recordError() != std::string(), compiles && !verdict)
        << criteria.evaluator.recordError();
    if (!verdict) {
        EXPECT_EQ(result, -1);
        return;
    }
    const ExpValue& value = criteria.evaluator.value();
    EXPECT_EQ(result, static_cast<int>(verdict->number));
    EXPECT_EQ((JudgedValue{value.getType(), value.getNumericValue(), std::wstring(value.text())}),
              *verdict);
}

TEST(Judge, AgreesOnGeneratedCriteriaAndRecords) {
    Generator generate(20240229);
    SampleRecord record;
    for (int round = 0; round < 4000 && !::testing::Test::HasFailure(); ++round) {
        const std::wstring text = generate.below(8) ? generate.number(4) : generate.text(4);
        Criteria criteria(text, record);
        const bool compiled = generate.below(2) && criteria.evaluator.compile();
        EXPECT_TRUE(criteria.join.calls.empty());
        for (int i = 0; i < 5; ++i) {
            generate.fill(record);
            const bool caseSensitive = generate.below(2) == 0;
            criteria.join.calls.clear();
            const int result = criteria.evaluator.check(caseSensitive);
            SCOPED_TRACE(toMultibyte(text) + " check " + std::to_string(i));
            ASSERT_EQ(criteria.evaluator.compileError().text, "");
            expectSame(criteria, result, record, caseSensitive, i == 0 && !compiled);
        }
    }
}

}  // namespace
}  // namespace fscanner

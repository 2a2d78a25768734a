#include <gtest/gtest.h>

#include <cwctype>

#include "expr/sample_record.h"
#include "fscanner/common/utf8.h"
#include "support/scoped_locale.h"

/// One line per criteria: its value while it is read, its value in later checks, its
/// tree, the error, and what two checks log.
namespace fscanner {
namespace {

struct Case {
    const wchar_t* text;
    const wchar_t* first;
    const wchar_t* later;
    const wchar_t* tree;
    const char* error = "";
    std::string log = "";
};

std::string errorOf(const CriteriaEvaluator& evaluator) {
    const CompileError& error = evaluator.compileError();
    if (error.text.empty()) return evaluator.recordError();
    return std::to_string(error.position) + ": " + error.text;
}

void run(const Case& c) {
    SCOPED_TRACE(toMultibyte(c.text));
    SampleRecord record;
    record.title(std::wstring(131072, L'x'));
    record.variables.as<TextField>(1)->value(std::wstring(65536, L'w').c_str());
    const LogCapture log;
    Criteria criteria(c.text, record);
    EXPECT_EQ(criteria.check(), c.first);
    EXPECT_EQ(errorOf(criteria.evaluator), c.error);
    const bool compiles = criteria.evaluator.compileError().text.empty();
    EXPECT_EQ(criteria.evaluator.failedOnRecord(), compiles && *c.error);
    // Without compile() the part of a bad criteria that was read still gives values.
    const std::wstring later =
        compiles ? criteria.check() : std::to_wstring(criteria.evaluator.check(true));
    EXPECT_EQ(later, c.later);
    EXPECT_EQ(log.text(), c.log);
    EXPECT_EQ(dumpTree(criteria.evaluator.tree()), c.tree);
    EXPECT_TRUE(Tree::preVisit(criteria.evaluator.tree().getRoot()));

    Criteria dry(c.text, record);
    EXPECT_EQ(dry.evaluator.compile(), compiles);
    EXPECT_EQ(dry.evaluator.compile(), compiles) << "once more";
    EXPECT_TRUE(dry.join.calls.empty());
    EXPECT_EQ(dry.check(), compiles ? c.later : L"fails") << "after a dry run";
    if (!compiles) {
        EXPECT_EQ(dry.evaluator.check(true), -1) << "final";
    }
}

const std::string kAnalyzer = "SyntaxAnalyzer::", kTree = "SyntaxTree::resolve - ";
const std::string kFactor = kAnalyzer + "factor - ";
const std::string kRunJoin = kFactor + "executing command[join]...\n";
const std::string kRunLength = kFactor + "executing command[length]...\n";
const std::string kZero = kAnalyzer + "term - division by zero!\n";

TEST(CriteriaTable, ValuesAndTrees) {
    const Case cases[] = {
        {L"-+5", L"-5", L"-5", L"(- (+ 5))"},
        {L"1 + 2*3-8/4", L"5", L"5", L"(- (+ 1 (* 2 3)) (/ 8 4))"},
        {L"6&3|8", L"10", L"10", L"(| (& 6 3) 8)"},
        {L"3>=3&&2<=1||4!=4", L"0", L"0", L"(|| (&& (>= 3 3) (<= 2 1)) (!= 4 4))"},
        {L"!3==0", L"1", L"1", L"(== (! 3) 0)"},
        {L"1 + 5 + )", L"6", L"6", L"(+ (+ 1 5) _)"},
        {L"length(join(1,\"ab\"))+1", L"4", L"4", L"(+ (length (join 1 \"ab\")) 1)", "",
         kRunJoin + kRunLength},
        // Criteria whose value while they are read differs from that of the tree.
        {L"-1 | 0", L"4294967295", L"-1", L"(| (- 1) 0)"},
        {L"[BIG] == 0", L"1", L"0", L"(== [BIG] 0)"},
        {L"1 || 1/0", L"fails", L"1", L"(|| 1 (/ 1 0))", "division by zero", kZero},
    };
    for (const Case& c : cases) run(c);
}

TEST(CriteriaTable, WhatFailsOnARecord) {
    const std::string patterns = "can't compare two wildcard string [a*][b?]!\n";
    const std::string failed = "command[join]: execute failed!\n";
    const std::string noRoom = "string space not available for concatenation\n";
    const Case cases[] = {
        {L"\"a*\"==\"b?\"", L"fails", L"fails", L"(== \"a*\" \"b?\")",
         "two patterns cannot be compared",
         kAnalyzer + "relation - " + patterns + kTree + patterns},
        {L"[TITLE]", L"fails", L"fails", L"[TITLE]", "text too long",
         kFactor + "string space not available\n" +
             "SyntaxTree::l_value - string space not available\n"},
        {L"wanted+wanted", L"fails", L"fails", L"(+ wanted wanted)", "joined text too long",
         kAnalyzer + "expression - " + noRoom + kTree + noRoom},
        {L"join(1,\"fail\")", L"fails", L"fails", L"(join 1 \"fail\")", "command failed",
         kRunJoin + kFactor + failed + kAnalyzer + "resolve - " + failed},
        // The first failure is told, and no command is executed after it.
        {L"1/0+2/0==length([TITLE])", L"fails", L"fails",
         L"(== (+ (/ 1 0) (/ 2 0)) (length [TITLE]))", "division by zero",
         kZero + kTree + "division by zero!\n"},
    };
    for (const Case& c : cases) run(c);
}

TEST(CriteriaTable, WhatDoesNotCompile) {
    const std::string operandTypes = " operands of different types or not NUMERIC\n";
    const std::string join = kFactor + "command[join]: ", length = kFactor + "command[length]: ";
    const std::string joinLater = kTree + "command[join], arguments type mismatch\n";
    const std::string lengthLater = kTree + "command[length], arguments type mismatch\n";
    const Case cases[] = {
        {L"", L"fails", L"0", L"_", "0: empty criteria", kFactor + "unexpected sequence!\n"},
        {L"1 ", L"fails", L"1", L"1", "1: blank at the end",
         kAnalyzer + "parse - expected operator.\n"},
        {L"+#", L"fails", L"0", L"_", "1: unexpected character '#'",
         kFactor + "unexpected sequence!\n"},
        {L"+\t", L"fails", L"0", L"_", "1: unexpected character U+0009",
         kFactor + "unexpected sequence!\n"},
        {L"*2", L"fails", L"0", L"_", "0: operand expected", kFactor + "expected '+' or '-'!\n"},
        {L"&&2", L"fails", L"0", L"_", "0: operand expected", kFactor + "expected '!'\n"},
        {L"(1, 2)", L"fails", L"1", L"1", "2: ')' expected", kFactor + "expected ')'\n"},
        {L"1 + [NOBODY]", L"fails", L"1", L"1", "4: no field [NOBODY]",
         kFactor + "variable specified not found!\n"},
        {L"[NAME]==5", L"fails", L"-1", L"(== [NAME] 5)", "6: '==' compares a number with a text",
         kAnalyzer + "relation - relation operands of different types!\n"},
        {L"\"a\" | \"b\"", L"fails", L"-1", L"(| \"a\" \"b\")", "4: '|' does not work on texts",
         kAnalyzer + "expression - operator '|' not permitted on string type\n"},
        {L"1 + \"b\"", L"fails", L"-1", L"(+ 1 \"b\")",
         "2: '+' joins two numbers or two texts, not one of each",
         kAnalyzer + "expression - expression" + operandTypes},
        {L"\"a\" / \"b\"", L"fails", L"-1", L"(/ \"a\" \"b\")", "4: '/' needs numbers, not texts",
         kAnalyzer + "term - term" + operandTypes},
        {L"-\"a\"", L"fails", L"-1", L"(- \"a\")", "0: '-' needs numbers, not texts",
         kFactor + "factor operand is not NUMERIC\n"},
        {L"1 || \"a\"", L"fails", L"1", L"(|| 1 \"a\")", "2: '||' needs numbers, not texts",
         kAnalyzer + "bExpression - bExpression" + operandTypes},
        // The type error decides, behind what fails on the record.
        {L"1/0 && \"a\"", L"fails", L"-1", L"(&& (/ 1 0) \"a\")",
         "4: '&&' needs numbers, not texts",
         kZero + kAnalyzer + "bTerm - bTerm" + operandTypes + kTree + "division by zero!\n"},
        {L"join", L"fails", L"-1", L"(join _)", "4: '(' expected",
         join + "'(' expected!\n" + joinLater},
        {L"join(1)", L"fails", L"-1", L"(join 1)", "6: ',' expected",
         join + "',' expected!\n" + joinLater},
        {L"join(1,\"a\"", L"fails", L"0", L"(join 1 \"a\")", "10: ')' expected",
         join + "')' expected!\n"},
        {L"join( \"a\",1)", L"fails", L"-1", L"(join \"a\")",
         "6: argument 1 of join has to be a number",
         join + "first parameter type mismatch!\n" + joinLater},
        {L"join(1, 2+3)", L"fails", L"-1", L"(join 1 (+ 2 3))",
         "8: argument 2 of join has to be a text",
         join + "second parameter type mismatch!\n" + joinLater},
        {L"length(1)", L"fails", L"-1", L"(length 1)", "7: argument 1 of length has to be a text",
         length + "parameter type mismatch!\n" + lengthLater},
    };
    for (const Case& c : cases) run(c);
}

/// "FIELD=VALUE".
std::wstring shown(const ExpValue& key) {
    const std::wstring value =
        key.getType() == STRING ? std::wstring(key.text()) : std::to_wstring(key.getNumericValue());
    return key.getNValueString() + (L"=" + value);
}
std::wstring keyOf(CriteriaEvaluator& evaluator) {
    const ExpValue* key = evaluator.getHashInfo();
    return key ? shown(*key) : L"";
}

TEST(CriteriaTable, KeysOfTheIndex) {
    static const struct {
        const wchar_t* text;
        const wchar_t* key;
    } cases[] = {
        {L"[PATHID]==)", L"PATHID=0"},
        {L"([BYTE]==1||[BYTE]==2) && [PATHID]==5", L"PATHID=5"},
        {L"1==1 || [PATHID]==5 && [BYTE]==1", L""},
        {L"!([PATHID]==5) && [BYTE]==1", L"BYTE=1"},
        {L"([PATHID]==5)==(1||0)", L""},
        {L"[PATHID]==length(\"abcde\")", L""},
        // What fails on the record gives no wrong key.
        {L"[TITLE]==\"*\" && [PATHID]==5", L"PATHID=5"},
        {L"[NAME]==\"*\" && [PATHID]==1/0 && [BYTE]==1", L"BYTE=1"},
    };
    SampleRecord record;
    record.name(L"a*");
    for (const auto& [text, key] : cases) {
        Criteria compiled(text, record), checked(text, record);
        EXPECT_EQ(keyOf(compiled.evaluator), key) << text;
        checked.check();
        EXPECT_EQ(keyOf(checked.evaluator), key) << text << ", after a check";
    }
}

/// The keys that a record set may look up: "FIELD=VALUE", with a blank between them.
std::wstring indexKeysOf(const wchar_t* text, bool caseSensitive) {
    SampleRecord record;
    Criteria compiled(text, record);
    EXPECT_TRUE(compiled.evaluator.compile()) << text;
    std::wstring keys;
    for (const ExpValue& key : indexKeys(compiled.evaluator.tree(), caseSensitive))
        keys += (keys.empty() ? L"" : L" ") + shown(key);
    return keys;
}

TEST(CriteriaTable, IndexesServeWhatHoldsForEveryMatch) {
    static const struct {
        const wchar_t* text;
        const wchar_t* keys;
        const wchar_t* withoutCase;
    } cases[] = {
        {L"[NAME]==\"a.txt\"", L"NAME=a.txt", L"NAME=a.txt"},
        {L"5==[PATHID] && ([NAME]!=\"b\" && (\"a\"==[NAME]))", L"PATHID=5 NAME=a",
         L"PATHID=5 NAME=a"},
        {L"1-([NAME]==\"a\")", L"", L""},
        {L"([NAME]==\"a\") | ([NAME]==\"b\")", L"", L""},
        {L"([NAME]==\"a\") + 1 && [BYTE]==1", L"BYTE=1", L"BYTE=1"},
        {L"!([NAME]==\"a\")", L"", L""},
        {L"[NAME]==\"a\" || [BYTE]==1", L"", L""},
        {L"[NAME]==\"a\" && [BYTE]==1 || 1", L"", L""},
        {L"-[PATHID]==5", L"", L""},
        {L"[PATHID]==limit && limit==5 && [NAME]==[TITLE]", L"", L""},
        {L"[NAME]==\"a*\" && [NAME]==\"a?\" && [NAME]!=\"a\" && [BYTE]>=1", L"", L""},
        {L"[NAME]==\"a\" + \"b\"", L"", L""},
        {L"[PATHID]==)", L"", L""},
        // With the case ignored: the Kelvin sign is a "k", and has another capital.
        {L"[NAME]==\"make\"", L"NAME=make", L""},
        {L"[NAME]==\"KELVIN\" && [TITLE]==\"a\"", L"NAME=KELVIN TITLE=a", L"TITLE=a"},
        {L"[NAME]==\"index\"", L"NAME=index", L""},
        {L"[NAME]==\"\x3b8\"", L"NAME=\x3b8", L""},
    };
    for (const auto& [text, keys, withoutCase] : cases) {
        EXPECT_EQ(indexKeysOf(text, true), keys) << text;
        EXPECT_EQ(indexKeysOf(text, false), withoutCase) << text;
    }
}

/// What `indexKeys` and `CompiledPattern` take for granted of the C library's tables: nothing but
/// two letters folds to ASCII in one direction only.
TEST(CriteriaTable, OnlyTwoLettersFoldToAsciiAndBackToAnother) {
    const ScopedLocale locale("C.UTF-8");
    if (!locale.available()) GTEST_SKIP() << "no C.UTF-8 here";
    for (wint_t c = 0; c < 0x110000; ++c) {
        const wint_t small = std::towlower(c);
        if (small >= 0x80 || small == L'i' || small == L'k') continue;
        EXPECT_EQ(std::towupper(c), std::towupper(small)) << std::hex << c;
    }
    EXPECT_EQ(std::towlower(0x212A), static_cast<wint_t>(L'k'));
}

TEST(CriteriaTable, SearchesTakeAnyNumberButZeroForAMatch) {
    static const struct {
        const wchar_t* text;
        const wchar_t* tree;
        const wchar_t* value;
    } cases[] = {
        {L"[BYTE]", L"(!= [BYTE] 0)", L"1"},
        {L"[SHORT] & 1", L"(!= (& [SHORT] 1) 0)", L"0"},
        {L"2", L"(!= 2 0)", L"1"},
        {L"1", L"1", L"1"},
        {L"1-([BYTE]==1)", L"(!= (- 1 (== [BYTE] 1)) 0)", L"1"},
        {L"-limit", L"(!= (- limit) 0)", L"1"},
        {L"[BYTE]==200 && 3", L"(&& (== [BYTE] 200) 3)", L"1"},
        {L"length(\"a\")", L"(length \"a\")", L"1"},
        {L"[NAME]", L"[NAME]", L"\"a.txt\""},
        // Wide numbers, and the field that no search fills.
        {L"[BIG] < 5000000000", L"(< [BIG] 5000000000)", L"1"},
        {L"9223372036854775807 > 9223372036854775806",
         L"(> 9223372036854775807 9223372036854775806)", L"1"},
        {L"[SHORTFILENAME]==\"*\"", L"(== \"\" \"*\")", L"1"},
    };
    SampleRecord record;
    for (const auto& [text, tree, value] : cases) {
        for (const bool compiled : {true, false}) {
            Criteria criteria(text, record, CriteriaRules::search);
            if (compiled) {
                EXPECT_TRUE(criteria.evaluator.compile()) << text;
            }
            EXPECT_EQ(criteria.check(), value) << text;
            EXPECT_EQ(criteria.check(), value) << text;
            EXPECT_EQ(dumpTree(criteria.evaluator.tree()), tree);
        }
    }
    for (const wchar_t* large : {L"9223372036854775808", L"1 == 00010000000000000000000"}) {
        Criteria criteria(large, record, CriteriaRules::search);
        EXPECT_FALSE(criteria.evaluator.compile());
        EXPECT_EQ(criteria.evaluator.compileError().text,
                  "a number is 9223372036854775807 at most");
    }
    Criteria plain(L"[SHORTFILENAME]==\"\"", record);
    EXPECT_FALSE(plain.evaluator.compile());
}

}  // namespace
}  // namespace fscanner

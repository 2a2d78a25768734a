#include <gtest/gtest.h>

#include <span>

#include "expr/sample_record.h"

/// One line per criteria: what it gives while it is read, what it gives ever
/// after, its tree, the index key, and the error.
namespace fscanner {
namespace {

struct Case {
    const wchar_t* text;
    const wchar_t* first;
    const wchar_t* later;
    const wchar_t* tree;
    const wchar_t* key = L"";
    const char* error = "";
};

std::wstring keyOf(CriteriaEvaluator& evaluator) {
    const ExpValue* key = evaluator.getHashInfo();
    if (!key) return L"";
    const std::wstring value = key->getType() == STRING ? std::wstring(key->text())
                                                        : std::to_wstring(key->getNumericValue());
    return key->getNValueString() + (L"=" + value);
}

std::string errorOf(const CriteriaEvaluator& evaluator) {
    const CompileError& error = evaluator.compileError();
    if (error.text.empty()) return evaluator.recordError();
    return std::to_string(error.position) + ": " + error.text;
}

void run(const Case& c, bool caseSensitive) {
    SCOPED_TRACE(std::string(c.text, c.text + std::wcslen(c.text)));
    SampleRecord record;
    Criteria criteria(c.text, record);
    EXPECT_EQ(criteria.check(caseSensitive), c.first);
    EXPECT_EQ(errorOf(criteria.evaluator), c.error);
    const bool compiles = criteria.evaluator.compileError().text.empty();
    // Without compile() what was read of a bad criteria goes on giving values.
    const std::wstring later = compiles ? criteria.check(caseSensitive)
                                        : std::to_wstring(criteria.evaluator.check(caseSensitive));
    EXPECT_EQ(later, c.later);
    EXPECT_EQ(dumpTree(criteria.evaluator.tree()), c.tree);
    EXPECT_TRUE(Tree::preVisit(criteria.evaluator.tree().getRoot()));
    EXPECT_EQ(keyOf(criteria.evaluator), c.key);

    Criteria dry(c.text, record);
    EXPECT_EQ(keyOf(dry.evaluator), c.key) << "in a dry run";
    EXPECT_EQ(dry.evaluator.compile(), compiles);
    EXPECT_TRUE(dry.join.calls.empty());
    EXPECT_EQ(dry.check(caseSensitive), compiles ? c.later : L"fails") << "after a dry run";
    if (!compiles) {
        EXPECT_EQ(dry.evaluator.check(caseSensitive), -1) << "final";
    }
}

void runAll(std::span<const Case> cases, bool caseSensitive = true) {
    for (const Case& c : cases) run(c, caseSensitive);
}

TEST(CriteriaTable, Operators) {
    static const Case cases[] = {
        {L"7", L"7", L"7", L"7"},
        {L"--5", L"5", L"5", L"(- (- 5))"},
        {L"-+5", L"-5", L"-5", L"(- (+ 5))"},
        {L"8-3-2", L"3", L"3", L"(- (- 8 3) 2)"},
        {L"1 + 2*3-8/4", L"5", L"5", L"(- (+ 1 (* 2 3)) (/ 8 4))"},
        {L"(1 + 2) * 3", L"9", L"9", L"(* (+ 1 2) 3)"},
        {L"-7 / 2", L"-3", L"-3", L"(/ (- 7) 2)"},
        {L"6&3|8", L"10", L"10", L"(| (& 6 3) 8)"},
        {L"1 < 2 == 1", L"1", L"1", L"(== (< 1 2) 1)"},
        {L"3>=3&&2<=1||4!=4", L"0", L"0", L"(|| (&& (>= 3 3) (<= 2 1)) (!= 4 4))"},
        {L"!3==0", L"1", L"1", L"(== (! 3) 0)"},
        {L"0||7", L"1", L"1", L"(|| 0 7)"},
        {L"2&&3", L"1", L"1", L"(&& 2 3)"},
        {L"2147483647*2147483647*3", L"-4611686031312289789", L"-4611686031312289789",
         L"(* (* 2147483647 2147483647) 3)"},
        {L"[BYTE]+[SHORT]", L"40200", L"40200", L"(+ [BYTE] [SHORT])"},
        {L"limit-9999999999", L"852516353", L"852516353", L"(- limit 2147483647)"},
        {L"\"ab\"+\"cd\"==\"abcd\"", L"1", L"1", L"(== (+ \"ab\" \"cd\") \"abcd\")"},
        {L"[NAME]+\"!\"", L"\"a.txt!\"", L"\"a.txt!\"", L"(+ [NAME] \"!\")"},
        {L"\"b\">\"a*\"&&\"B\"<\"a\"", L"1", L"1", L"(&& (> \"b\" \"a*\") (< \"B\" \"a\"))"},
    };
    runAll(cases);
}

TEST(CriteriaTable, WhereReadingDiffersFromTheTree) {
    static const Case cases[] = {
        {L"-1 | 0", L"4294967295", L"-1", L"(| (- 1) 0)"},
        {L"-1 & -1", L"4294967295", L"-1", L"(& (- 1) (- 1))"},
        {L"[BIG] == 0", L"1", L"0", L"(== [BIG] 0)", L"BIG=0"},
        {L"[BIG]", L"0", L"4294967296", L"[BIG]"},
        {L"1 || 1/0", L"fails", L"1", L"(|| 1 (/ 1 0))", L"", "division by zero"},
        {L"0 && 1/0", L"fails", L"0", L"(&& 0 (/ 1 0))", L"", "division by zero"},
        {L"2 || 1/0", L"fails", L"fails", L"(|| 2 (/ 1 0))", L"", "division by zero"},
        {L"1 || join(1,\"fail\")==\"x\"", L"fails", L"1", L"(|| 1 (== (join 1 \"fail\") \"x\"))",
         L"", "command failed"},
    };
    runAll(cases);
}

TEST(CriteriaTable, WildcardsFollowTheCaseFlag) {
    static const Case sensitive[] = {
        {L"[NAME]==\"*.txt\"", L"1", L"1", L"(== [NAME] \"*.txt\")"},
        {L"\"?.t*\"==[NAME]", L"1", L"1", L"(== \"?.t*\" [NAME])"},
        {L"[NAME]!=\"*.TXT\"", L"1", L"1", L"(!= [NAME] \"*.TXT\")"},
        {L"[NAME]==\"A.TXT\"", L"0", L"0", L"(== [NAME] \"A.TXT\")", L"NAME=A.TXT"},
        {L"[NAME]>\"B\"", L"1", L"1", L"(> [NAME] \"B\")"},
        {L"[NAME]==wanted", L"1", L"1", L"(== [NAME] wanted)"},
        {L"\"a*\"==\"b*\"", L"fails", L"fails", L"(== \"a*\" \"b*\")", L"",
         "two patterns cannot be compared"},
    };
    static const Case folded[] = {
        {L"[NAME]==\"*.TXT\"", L"1", L"1", L"(== [NAME] \"*.TXT\")"},
        {L"[NAME]!=\"?.TXT\"", L"0", L"0", L"(!= [NAME] \"?.TXT\")"},
        {L"[NAME]==\"A.TXT\"", L"1", L"1", L"(== [NAME] \"A.TXT\")", L"NAME=A.TXT"},
        {L"[NAME]>\"B\"", L"0", L"0", L"(> [NAME] \"B\")"},
    };
    runAll(sensitive);
    runAll(folded, false);
}

TEST(CriteriaTable, IndexKeys) {
    static const Case cases[] = {
        {L"[PATHID]==5 && [NAME]==\"x\"", L"0", L"0", L"(&& (== [PATHID] 5) (== [NAME] \"x\"))",
         L"PATHID=5"},
        {L"\"x\"==[NAME] && [PATHID]==5", L"0", L"0", L"(&& (== \"x\" [NAME]) (== [PATHID] 5))",
         L"NAME=x"},
        {L"[NAME]==\"x*\" && [PATHID]==5", L"0", L"0", L"(&& (== [NAME] \"x*\") (== [PATHID] 5))",
         L"PATHID=5"},
        {L"[PATHID]==5 || [PATHID]==6", L"1", L"1", L"(|| (== [PATHID] 5) (== [PATHID] 6))"},
        {L"[PATHID]==5 && ([BYTE]==1||[BYTE]==2)", L"0", L"0",
         L"(&& (== [PATHID] 5) (|| (== [BYTE] 1) (== [BYTE] 2)))", L"PATHID=5"},
        {L"([BYTE]==1||[BYTE]==2) && [PATHID]==5", L"0", L"0",
         L"(&& (|| (== [BYTE] 1) (== [BYTE] 2)) (== [PATHID] 5))", L"PATHID=5"},
        {L"1==1 || [PATHID]==5 && [BYTE]==1", L"1", L"1",
         L"(|| (== 1 1) (&& (== [PATHID] 5) (== [BYTE] 1)))"},
        {L"!([PATHID]==5) && [BYTE]==1", L"0", L"0", L"(&& (! (== [PATHID] 5)) (== [BYTE] 1))",
         L"BYTE=1"},
        {L"[PATHID]==limit", L"0", L"0", L"(== [PATHID] limit)"},
        {L"[PATHID]+0==5", L"1", L"1", L"(== (+ [PATHID] 0) 5)"},
        {L"[PATHID]==2+3", L"1", L"1", L"(== [PATHID] (+ 2 3))", L"PATHID=5"},
        {L"![PATHID]==5", L"0", L"0", L"(== (! [PATHID]) 5)"},
        {L"([PATHID]&&1)==1", L"1", L"1", L"(== (&& [PATHID] 1) 1)"},
        {L"length([NAME])==5", L"1", L"1", L"(== (length [NAME]) 5)"},
        {L"[PATHID]==length(\"abcde\")", L"1", L"1", L"(== [PATHID] (length \"abcde\"))"},
        // By the counts of literals and fields alone, which goes too far here.
        {L"-[PATHID]==5", L"0", L"0", L"(== (- [PATHID]) 5)", L"PATHID=5"},
        {L"([PATHID]==5)==0", L"0", L"0", L"(== (== [PATHID] 5) 0)", L"PATHID=5"},
        {L"limit==5 && [PATHID]==6", L"0", L"0", L"(&& (== limit 5) (== [PATHID] 6))", L"limit=5"},
        {L"([PATHID]==5)==(1||0)", L"1", L"1", L"(== (== [PATHID] 5) (|| 1 0))"},
        {L"[PATHID]==)", L"0", L"0", L"(== [PATHID] _)", L"PATHID=0"},
    };
    runAll(cases);
}

TEST(CriteriaTable, MissingOperandsBeforeAParenthesis) {
    static const Case cases[] = {
        {L"1 + )", L"1", L"1", L"(+ 1 _)"},
        {L"1 + 5 + )", L"6", L"6", L"(+ (+ 1 5) _)"},
        {L")", L"0", L"0", L"_"},
        {L"!)", L"1", L"1", L"(! _)"},
    };
    runAll(cases);
}

TEST(CriteriaTable, WhatDoesNotCompile) {
    static const Case cases[] = {
        {L"", L"fails", L"0", L"_", L"", "0: empty criteria"},
        {L"1 2", L"fails", L"1", L"1", L"", "2: operator expected"},
        {L"1 ", L"fails", L"1", L"1", L"", "1: blank at the end"},
        {L"1)", L"fails", L"1", L"1", L"", "1: operator expected"},
        {L"1 +", L"fails", L"1", L"1", L"", "3: operand expected"},
        {L"1 + , 2", L"fails", L"1", L"1", L"", "4: operand expected"},
        {L"*2", L"fails", L"0", L"_", L"", "0: operand expected"},
        {L"&&2", L"fails", L"0", L"_", L"", "0: operand expected"},
        {L"==2", L"fails", L"0", L"_", L"", "0: operand expected"},
        {L"(1", L"fails", L"1", L"1", L"", "2: ')' expected"},
        {L"()", L"fails", L"0", L"_", L"", "2: ')' expected"},
        {L"(1, 2)", L"fails", L"1", L"1", L"", "2: ')' expected"},
        {L"1 = 1", L"fails", L"1", L"1", L"", "2: '=' is no operator: equality is '=='"},
        {L"1 + \"a", L"fails", L"1", L"1", L"", "4: text without a closing '\"'"},
        {L"[A B]==1", L"fails", L"0", L"_", L"",
         "0: a field is a name of letters and digits in brackets: [NAME]"},
        {L"5.", L"fails", L"0", L"_", L"",
         "0: a number ends in a digit and is shorter than 256 characters"},
        {L"1 #", L"fails", L"1", L"1", L"", "2: unexpected character '#'"},
        {L"1\t", L"fails", L"1", L"1", L"", "1: unexpected character U+0009"},
        {L"1 + [NOBODY]", L"fails", L"1", L"1", L"", "4: no field [NOBODY]"},
        {L"name==1", L"fails", L"0", L"_", L"",
         "0: no variable name: a text is written between double quotes"},
        {L"[NAME]==5", L"fails", L"-1", L"(== [NAME] 5)", L"",
         "6: '==' compares a number with a text"},
        {L"\"a\" - \"b\"", L"fails", L"-1", L"(- \"a\" \"b\")", L"",
         "4: '-' does not work on texts"},
        {L"\"a\" | \"b\"", L"fails", L"-1", L"(| \"a\" \"b\")", L"",
         "4: '|' does not work on texts"},
        {L"1 + \"b\"", L"fails", L"-1", L"(+ 1 \"b\")", L"",
         "2: '+' joins two numbers or two texts, not one of each"},
        {L"\"a\" / \"b\"", L"fails", L"-1", L"(/ \"a\" \"b\")", L"",
         "4: '/' needs numbers, not texts"},
        {L"-\"a\"", L"fails", L"-1", L"(- \"a\")", L"", "0: '-' needs numbers, not texts"},
        {L"1 || \"a\"", L"fails", L"1", L"(|| 1 \"a\")", L"", "2: '||' needs numbers, not texts"},
    };
    runAll(cases);
}

TEST(CriteriaTable, CallsOfCommands) {
    static const Case cases[] = {
        {L"join([PATHID], [NAME])==\"5a.*\"", L"1", L"1", L"(== (join [PATHID] [NAME]) \"5a.*\")"},
        {L"length(join(1,\"ab\"))+1", L"4", L"4", L"(+ (length (join 1 \"ab\")) 1)"},
        {L"join", L"fails", L"-1", L"(join _)", L"", "4: '(' expected"},
        {L"join(1)", L"fails", L"-1", L"(join 1)", L"", "6: ',' expected"},
        {L"join(1,\"a\"", L"fails", L"0", L"(join 1 \"a\")", L"", "10: ')' expected"},
        {L"join( \"a\",1)", L"fails", L"-1", L"(join \"a\")", L"",
         "6: argument 1 of join has to be a number"},
        {L"join(1, 2+3)", L"fails", L"-1", L"(join 1 (+ 2 3))", L"",
         "8: argument 2 of join has to be a text"},
        {L"length(1)", L"fails", L"-1", L"(length 1)", L"",
         "7: argument 1 of length has to be a text"},
        {L"lengthy(\"a\")", L"fails", L"-1", L"(length _)", L"", "6: '(' expected"},
    };
    runAll(cases);
}

}  // namespace
}  // namespace fscanner

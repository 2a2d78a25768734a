#include <gtest/gtest.h>

#include "expr/sample_record.h"

/// One line per criteria: what it gives while it is read, what it gives ever after, its
/// tree, the index key, the error, and what two checks log.
namespace fscanner {
namespace {

struct Case {
    const wchar_t* text;
    const wchar_t* first;
    const wchar_t* later;
    const wchar_t* tree;
    const wchar_t* key = L"";
    const char* error = "";
    std::string log = "";
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

void run(const Case& c) {
    SCOPED_TRACE(std::string(c.text, c.text + std::wcslen(c.text)));
    SampleRecord record;
    record.title(std::wstring(131072, L'x'));
    record.variables.as<TextField>(1)->value(std::wstring(65536, L'w').c_str());
    const LogCapture log;
    Criteria criteria(c.text, record);
    EXPECT_EQ(criteria.check(), c.first);
    EXPECT_EQ(errorOf(criteria.evaluator), c.error);
    const bool compiles = criteria.evaluator.compileError().text.empty();
    // Without compile() what was read of a bad criteria goes on giving values.
    const std::wstring later =
        compiles ? criteria.check() : std::to_wstring(criteria.evaluator.check(true));
    EXPECT_EQ(later, c.later);
    EXPECT_EQ(log.text(), c.log);
    EXPECT_EQ(dumpTree(criteria.evaluator.tree()), c.tree);
    EXPECT_TRUE(Tree::preVisit(criteria.evaluator.tree().getRoot()));
    EXPECT_EQ(keyOf(criteria.evaluator), c.key);

    Criteria dry(c.text, record);
    EXPECT_EQ(keyOf(dry.evaluator), c.key) << "in a dry run";
    EXPECT_EQ(dry.evaluator.compile(), compiles);
    EXPECT_TRUE(dry.join.calls.empty());
    EXPECT_EQ(dry.check(), compiles ? c.later : L"fails") << "after a dry run";
    if (!compiles) {
        EXPECT_EQ(dry.evaluator.check(true), -1) << "final";
    }
}

TEST(CriteriaTable, TreesAndKeys) {
    const Case cases[] = {
        {L"-+5", L"-5", L"-5", L"(- (+ 5))"},
        {L"1 + 2*3-8/4", L"5", L"5", L"(- (+ 1 (* 2 3)) (/ 8 4))"},
        {L"6&3|8", L"10", L"10", L"(| (& 6 3) 8)"},
        {L"3>=3&&2<=1||4!=4", L"0", L"0", L"(|| (&& (>= 3 3) (<= 2 1)) (!= 4 4))"},
        {L"!3==0", L"1", L"1", L"(== (! 3) 0)"},
        // A missing operand before a parenthesis.
        {L"1 + 5 + )", L"6", L"6", L"(+ (+ 1 5) _)"},
        {L"!)", L"1", L"1", L"(! _)"},
        {L"[PATHID]==)", L"0", L"0", L"(== [PATHID] _)", L"PATHID=0"},
        // The first key counts.
        {L"[PATHID]==5 && [NAME]==\"x\"", L"0", L"0", L"(&& (== [PATHID] 5) (== [NAME] \"x\"))",
         L"PATHID=5"},
        {L"([BYTE]==1||[BYTE]==2) && [PATHID]==5", L"0", L"0",
         L"(&& (|| (== [BYTE] 1) (== [BYTE] 2)) (== [PATHID] 5))", L"PATHID=5"},
        {L"1==1 || [PATHID]==5 && [BYTE]==1", L"1", L"1",
         L"(|| (== 1 1) (&& (== [PATHID] 5) (== [BYTE] 1)))"},
        {L"!([PATHID]==5) && [BYTE]==1", L"0", L"0", L"(&& (! (== [PATHID] 5)) (== [BYTE] 1))",
         L"BYTE=1"},
        {L"![PATHID]==5", L"0", L"0", L"(== (! [PATHID]) 5)"},
        {L"([PATHID]&&1)==1", L"1", L"1", L"(== (&& [PATHID] 1) 1)"},
        {L"([PATHID]==5)==(1||0)", L"1", L"1", L"(== (== [PATHID] 5) (|| 1 0))"},
        // By the counts of literals and fields alone, which goes too far here.
        {L"-[PATHID]==5", L"0", L"0", L"(== (- [PATHID]) 5)", L"PATHID=5"},
        {L"limit==5 && [PATHID]==6", L"0", L"0", L"(&& (== limit 5) (== [PATHID] 6))", L"limit=5"},
    };
    for (const Case& c : cases) run(c);
}

const std::string kAnalyzer = "SyntaxAnalyzer::", kTree = "SyntaxTree::resolve - ";
const std::string kRunJoin = kAnalyzer + "factor - executing command[join]...\n";
const std::string kRunLength = kAnalyzer + "factor - executing command[length]...\n";
const std::string kZero = kAnalyzer + "term - division by zero!\n" + kTree + "division by zero!\n";

TEST(CriteriaTable, WhereReadingDiffersFromTheTree) {
    const std::string zero = kAnalyzer + "term - division by zero!\n";
    const Case cases[] = {
        {L"-1 | 0", L"4294967295", L"-1", L"(| (- 1) 0)"},
        {L"[BIG] == 0", L"1", L"0", L"(== [BIG] 0)", L"BIG=0"},
        {L"1 || 1/0", L"fails", L"1", L"(|| 1 (/ 1 0))", L"", "division by zero", zero},
        {L"1 || join(1,\"fail\")==\"x\"", L"fails", L"1", L"(|| 1 (== (join 1 \"fail\") \"x\"))",
         L"", "command failed", kRunJoin + kAnalyzer + "factor - command[join]: execute failed!\n"},
    };
    for (const Case& c : cases) run(c);
}

TEST(CriteriaTable, WhatFailsOnARecord) {
    const std::string mismatch = "can't compare two wildcard string [a*][b?]!\n";
    const Case cases[] = {
        {L"\"a*\"==\"b?\"", L"fails", L"fails", L"(== \"a*\" \"b?\")", L"",
         "two patterns cannot be compared",
         kAnalyzer + "relation - " + mismatch + kTree + mismatch},
        {L"[TITLE]", L"fails", L"fails", L"[TITLE]", L"", "text too long",
         kAnalyzer + "factor - string space not available\n"
                     "SyntaxTree::l_value - string space not available\n"},
        {L"wanted+wanted", L"fails", L"fails", L"(+ wanted wanted)", L"", "joined text too long",
         kAnalyzer + "expression - string space not available for concatenation\n" + kTree +
             "string space not available for concatenation\n"},
        {L"join(1,\"fail\")", L"fails", L"fails", L"(join 1 \"fail\")", L"", "command failed",
         kRunJoin + kAnalyzer + "factor - command[join]: execute failed!\n" + kAnalyzer +
             "resolve - command[join]: execute failed!\n"},
        // The first failure is told, and no command is executed after it.
        {L"1/0+length([TITLE])", L"fails", L"fails", L"(+ (/ 1 0) (length [TITLE]))", L"",
         "division by zero", kZero},
        {L"1/0+2/0==length(\"a\") && [PATHID]==5", L"fails", L"fails",
         L"(&& (== (+ (/ 1 0) (/ 2 0)) (length \"a\")) (== [PATHID] 5))", L"PATHID=5",
         "division by zero", kZero},
    };
    for (const Case& c : cases) run(c);
}

TEST(CriteriaTable, CallsOfCommands) {
    const Case cases[] = {
        {L"join([PATHID], [NAME])==\"5a.*\"", L"1", L"1", L"(== (join [PATHID] [NAME]) \"5a.*\")",
         L"", "", kRunJoin},
        {L"length(join(1,\"ab\"))+1", L"4", L"4", L"(+ (length (join 1 \"ab\")) 1)", L"", "",
         kRunJoin + kRunLength},
        {L"length([NAME])==5", L"1", L"1", L"(== (length [NAME]) 5)", L"", "", kRunLength},
        {L"[PATHID]==length(\"abcde\")", L"1", L"1", L"(== [PATHID] (length \"abcde\"))", L"", "",
         kRunLength},
    };
    for (const Case& c : cases) run(c);
}

TEST(CriteriaTable, WhatDoesNotCompile) {
    struct Refused {
        const wchar_t* text;
        const wchar_t* later;
        const wchar_t* tree;
        const char* error;
        const char* log;  // of the analyzer
    };
    const Refused cases[] = {
        {L"", L"0", L"_", "0: empty criteria", "factor - unexpected sequence!"},
        {L"1 ", L"1", L"1", "1: blank at the end", "parse - expected operator."},
        {L"1)", L"1", L"1", "1: operator expected", "parse - expected operator."},
        {L"1 +", L"1", L"1", "3: operand expected", "factor - unexpected sequence!"},
        {L"1 + , 2", L"1", L"1", "4: operand expected", "factor - unexpected sequence!"},
        {L"*2", L"0", L"_", "0: operand expected", "factor - expected '+' or '-'!"},
        {L"&&2", L"0", L"_", "0: operand expected", "factor - expected '!'"},
        {L"==2", L"0", L"_", "0: operand expected", "factor - unexpected sequence!"},
        {L"(1", L"1", L"1", "2: ')' expected", "factor - expected ')'"},
        {L"()", L"0", L"_", "2: ')' expected", "factor - expected ')'"},
        {L"(1, 2)", L"1", L"1", "2: ')' expected", "factor - expected ')'"},
        {L"1 #", L"1", L"1", "2: unexpected character '#'", "parse - expected operator."},
        {L"1\t", L"1", L"1", "1: unexpected character U+0009", "parse - expected operator."},
        {L"1 + [NOBODY]", L"1", L"1", "4: no field [NOBODY]",
         "factor - variable specified not found!"},
        {L"name==1", L"0", L"_", "0: no variable name: a text is written between double quotes",
         "factor - variable specified not found!"},
        {L"[NAME]==5", L"-1", L"(== [NAME] 5)", "6: '==' compares a number with a text",
         "relation - relation operands of different types!"},
        {L"\"a\" - \"b\"", L"-1", L"(- \"a\" \"b\")", "4: '-' does not work on texts",
         "expression - operator '-' not permitted on string type"},
        {L"\"a\" | \"b\"", L"-1", L"(| \"a\" \"b\")", "4: '|' does not work on texts",
         "expression - operator '|' not permitted on string type"},
        {L"1 + \"b\"", L"-1", L"(+ 1 \"b\")",
         "2: '+' joins two numbers or two texts, not one of each",
         "expression - expression operands of different types or not NUMERIC"},
        {L"\"a\" / \"b\"", L"-1", L"(/ \"a\" \"b\")", "4: '/' needs numbers, not texts",
         "term - term operands of different types or not NUMERIC"},
        {L"-\"a\"", L"-1", L"(- \"a\")", "0: '-' needs numbers, not texts",
         "factor - factor operand is not NUMERIC"},
        {L"!\"a\"", L"-1", L"(! \"a\")", "0: '!' needs numbers, not texts",
         "factor - factor operand is not NUMERIC"},
        {L"1 || \"a\"", L"1", L"(|| 1 \"a\")", "2: '||' needs numbers, not texts",
         "bExpression - bExpression operands of different types or not NUMERIC"},
        {L"1 && \"a\"", L"-1", L"(&& 1 \"a\")", "2: '&&' needs numbers, not texts",
         "bTerm - bTerm operands of different types or not NUMERIC"},
    };
    for (const Refused& c : cases)
        run({c.text, L"fails", c.later, c.tree, L"", c.error, kAnalyzer + c.log + "\n"});
}

TEST(CriteriaTable, CallsThatDoNotCompile) {
    struct Refused {
        const wchar_t* text;
        const wchar_t* tree;
        const char* error;
        const char* log;  // what the analyzer says of the command
    };
    const Refused cases[] = {
        {L"join", L"(join _)", "4: '(' expected", "'(' expected!"},
        {L"join(1)", L"(join 1)", "6: ',' expected", "',' expected!"},
        {L"join( \"a\",1)", L"(join \"a\")", "6: argument 1 of join has to be a number",
         "first parameter type mismatch!"},
        {L"join(1, 2+3)", L"(join 1 (+ 2 3))", "8: argument 2 of join has to be a text",
         "second parameter type mismatch!"},
        {L"length(1)", L"(length 1)", "7: argument 1 of length has to be a text",
         "parameter type mismatch!"},
        {L"lengthy(\"a\")", L"(length _)", "6: '(' expected", "'(' expected!"},
    };
    for (const Refused& c : cases) {
        const std::string name = c.text[0] == L'j' ? "command[join]" : "command[length]";
        run({c.text, L"fails", L"-1", c.tree, L"", c.error,
             kAnalyzer + "factor - " + name + ": " + c.log + "\n" + kTree + name +
                 ", arguments type mismatch\n"});
    }
    run({L"join(1,\"a\"", L"fails", L"0", L"(join 1 \"a\")", L"", "10: ')' expected",
         kAnalyzer + "factor - command[join]: ')' expected!\n"});
}

TEST(CriteriaTable, ADryRunLogsThatItResetsCommands) {
    SampleRecord record;
    const LogCapture log;
    Criteria criteria(L"join(1/0,\"a\")==\"b\"", record);
    criteria.evaluator.compile();
    EXPECT_EQ(log.text(),
              kRunJoin + kAnalyzer + "factor - command[join]: resetting factorValue [1]!\n");
}

}  // namespace
}  // namespace fscanner

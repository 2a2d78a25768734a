#include <gtest/gtest.h>

#include "expr/sample_record.h"

namespace fscanner {
namespace {

/// What two checks, the first of which reads the criteria, write to the log.
std::string logOf(const wchar_t* text, SampleRecord& record, bool dry = false) {
    const LogCapture log;
    Criteria criteria(text, record);
    if (dry) {
        criteria.evaluator.compile();
    } else {
        criteria.evaluator.check(true);
        criteria.evaluator.check(true);
    }
    return log.text();
}

TEST(ExpressionLog, TellsEveryFailure) {
    static const struct {
        const wchar_t* text;
        const char* first;
        const char* later = "";
    } cases[] = {
        {L"1+1", ""},
        {L"1 2", "SyntaxAnalyzer::parse - expected operator.\n"},
        {L"1 ", "SyntaxAnalyzer::parse - expected operator.\n"},
        {L"[NOBODY]", "SyntaxAnalyzer::factor - variable specified not found!\n"},
        {L"nobody", "SyntaxAnalyzer::factor - variable specified not found!\n"},
        {L"*1", "SyntaxAnalyzer::factor - expected '+' or '-'!\n"},
        {L"-\"a\"", "SyntaxAnalyzer::factor - factor operand is not NUMERIC\n"},
        {L"!\"a\"", "SyntaxAnalyzer::factor - factor operand is not NUMERIC\n"},
        {L"(1", "SyntaxAnalyzer::factor - expected ')'\n"},
        {L"&&1", "SyntaxAnalyzer::factor - expected '!'\n"},
        {L"1+;", "SyntaxAnalyzer::factor - unexpected sequence!\n"},
        {L"1*\"a\"", "SyntaxAnalyzer::term - term operands of different types or not NUMERIC\n"},
        {L"1+\"a\"",
         "SyntaxAnalyzer::expression - expression operands of different types or not NUMERIC\n"},
        {L"\"a\"-\"b\"",
         "SyntaxAnalyzer::expression - operator '-' not permitted on string type\n"},
        {L"1==\"a\"", "SyntaxAnalyzer::relation - relation operands of different types!\n"},
        {L"1&&\"a\"", "SyntaxAnalyzer::bTerm - bTerm operands of different types or not NUMERIC\n"},
        {L"1||\"a\"",
         "SyntaxAnalyzer::bExpression - bExpression operands of different types or not NUMERIC\n"},
        {L"\"a*\"==\"b?\"",
         "SyntaxAnalyzer::relation - can't compare two wildcard string [a*][b?]!\n",
         "SyntaxTree::resolve - can't compare two wildcard string [a*][b?]!\n"},
        {L"1/0", "SyntaxAnalyzer::term - division by zero!\n",
         "SyntaxTree::resolve - division by zero!\n"},
        {L"[TITLE]", "SyntaxAnalyzer::factor - string space not available\n",
         "SyntaxTree::l_value - string space not available\n"},
        {L"wanted+wanted",
         "SyntaxAnalyzer::expression - string space not available for concatenation\n",
         "SyntaxTree::resolve - string space not available for concatenation\n"},
        {L"length", "SyntaxAnalyzer::factor - command[length]: '(' expected!\n",
         "SyntaxTree::resolve - command[length], arguments type mismatch\n"},
        {L"length(1)", "SyntaxAnalyzer::factor - command[length]: parameter type mismatch!\n",
         "SyntaxTree::resolve - command[length], arguments type mismatch\n"},
        {L"join(\"a\",\"b\")",
         "SyntaxAnalyzer::factor - command[join]: first parameter type mismatch!\n",
         "SyntaxTree::resolve - command[join], arguments type mismatch\n"},
        {L"join(1,2)", "SyntaxAnalyzer::factor - command[join]: second parameter type mismatch!\n",
         "SyntaxTree::resolve - command[join], arguments type mismatch\n"},
        {L"join(1)", "SyntaxAnalyzer::factor - command[join]: ',' expected!\n",
         "SyntaxTree::resolve - command[join], arguments type mismatch\n"},
        {L"length(\"a\"", "SyntaxAnalyzer::factor - command[length]: ')' expected!\n"},
        {L"length(\"a\")", "SyntaxAnalyzer::factor - executing command[length]...\n"},
        {L"join(1,\"fail\")",
         "SyntaxAnalyzer::factor - executing command[join]...\n"
         "SyntaxAnalyzer::factor - command[join]: execute failed!\n",
         "SyntaxAnalyzer::resolve - command[join]: execute failed!\n"},
        // The first failure is told, and no command is executed after it.
        {L"1/0+length([TITLE])", "SyntaxAnalyzer::term - division by zero!\n",
         "SyntaxTree::resolve - division by zero!\n"},
        {L"1/0+2/0==length(\"a\")", "SyntaxAnalyzer::term - division by zero!\n",
         "SyntaxTree::resolve - division by zero!\n"},
    };
    SampleRecord record;
    record.title(std::wstring(131072, L'x'));
    record.variables.as<TextField>(1)->value(std::wstring(65536, L'w').c_str());
    for (const auto& c : cases) {
        EXPECT_EQ(logOf(c.text, record), std::string(c.first) + c.later) << std::wstring(c.text);
    }
}

TEST(ExpressionLog, ADryRunResetsCommands) {
    SampleRecord record;
    EXPECT_EQ(logOf(L"join(1/0,\"a\")==\"b\"", record, true),
              "SyntaxAnalyzer::factor - executing command[join]...\n"
              "SyntaxAnalyzer::factor - command[join]: resetting factorValue [1]!\n");
}

}  // namespace
}  // namespace fscanner

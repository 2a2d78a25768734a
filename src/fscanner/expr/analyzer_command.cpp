#include <array>

#include "fscanner/expr/analyzer.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

/// The node is built even when the call is wrong: later evaluations of the tree
/// then fail as well, instead of taking the first argument for the whole.
bool SyntaxAnalyzer::command(Token token, ParsedValue& value, bool evaluate, Tree& tree) {
    const CmdToken command = *commandAt(token.getNumericValue());
    token.setStringValue(command.name());
    token.setExecute(evaluate);
    std::array<ParsedValue, 2> values;
    Tree second;
    second.setRoot();
    const std::array<Tree*, 2> trees{&tree, &second};
    const std::span used = std::span(values).first(command.argumentCount());
    const bool read = arguments(command, used, trees, evaluate);
    tree.merge(&second);
    tree.setData(tree.getRoot(), token);
    if (!read) return false;
    execute(command, values, value);
    // No result of a command is a key of an index: it is no field, and no constant.
    value.origin = {L"", 0, 2};
    return true;
}

namespace {

/// The word before "parameter" in the log.
const char* ordinal(std::size_t index, std::size_t count) {
    if (count == 1) return "";
    return index == 0 ? "first " : "second ";
}

}  // namespace

bool SyntaxAnalyzer::arguments(const CmdToken& command, std::span<ParsedValue> values,
                               std::span<Tree* const> trees, bool evaluate) {
    const Nesting nesting(*this);
    if (nesting.isTooDeep()) return failDepth();
    if (!punctuation(command, TOKEN_PARENTESI, PAREN_OPEN, "(")) return false;
    for (unsigned i = 0; i < values.size(); ++i) {
        if (i > 0 && !punctuation(command, TOKEN_SIGN, SIGN_COMMA, ",")) return false;
        nextToken();
        lexer_.back();
        const std::size_t position = position_;
        if (!chain(Level::bExpression, values[i], evaluate, *trees[i])) return false;
        if (values[i].type == command.argumentType(i)) continue;
        debug("SyntaxAnalyzer::factor - command[%ls]: %sparameter type mismatch!\n", command.name(),
              ordinal(i, values.size()));
        return failCompile(argumentTypeText(command, i), position);
    }
    return punctuation(command, TOKEN_PARENTESI, PAREN_CLOSE, ")");
}

bool SyntaxAnalyzer::punctuation(const CmdToken& command, int type, long long code,
                                 const char* spelling) {
    if (nextToken().is(type, code)) return true;
    debug("SyntaxAnalyzer::factor - command[%ls]: '%s' expected!\n", command.name(), spelling);
    return failSyntax("'" + std::string(spelling) + "' expected");
}

void SyntaxAnalyzer::execute(const CmdToken& command, std::span<const ParsedValue> values,
                             ParsedValue& result) {
    result.take({command.resultType(), 0, L""});
    if (!isComputing()) return;
    debug("SyntaxAnalyzer::factor - executing command[%ls]...\n", command.name());
    if (rules_.dryRun) {
        return debug("SyntaxAnalyzer::factor - command[%ls]: resetting factorValue [%d]!\n",
                     command.name(), command.resultType());
    }
    ExpValue first, second, out;
    values[0].copyTo(first);
    values[1].copyTo(second);
    if (command.execute(first, second, out) != 0) {
        debug("SyntaxAnalyzer::factor - command[%ls]: execute failed!\n", command.name());
        return failEvaluation(Fault::commandFailed, result, result);
    }
    result.take({out.getType(), out.getNumericValue(), out.text()});
}

bool SyntaxAnalyzer::addCmdToken(const wchar_t* name, char resultType, char firstType,
                                 char secondType, BinaryCmd* command) {
    return fscanner::addCmdToken(name, resultType, firstType, secondType, command);
}

bool SyntaxAnalyzer::addCmdToken(const wchar_t* name, char resultType, char argumentType,
                                 UnaryCmd* command) {
    return fscanner::addCmdToken(name, resultType, argumentType, command);
}

bool SyntaxAnalyzer::findCmdToken(const wchar_t* name, char firstType, char secondType) {
    return fscanner::findCmdToken(name, firstType, secondType);
}

bool SyntaxAnalyzer::findCmdToken(const wchar_t* name, char argumentType) {
    return fscanner::findCmdToken(name, argumentType);
}

}  // namespace fscanner

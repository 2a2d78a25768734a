#include "fscanner/expr/analyzer.h"

#include <array>
#include <utility>

#include "fscanner/common/debug.h"

namespace fscanner {

SyntaxAnalyzer::SyntaxAnalyzer(CriteriaRules rules) : criteriaRules_(rules) {
    clearCommands();
    if (rules == CriteriaRules::search) lexer_.readWideNumbers();
}

int SyntaxAnalyzer::parse(const wchar_t* text, const Fields* fields, const Fields* variables,
                          ExpValue& result, bool caseSensitive) {
    if (!text) return 1;
    fields_ = fields;
    variables_ = variables;
    rules_.caseSensitive = caseSensitive;
    key_.start();
    lexer_.setExpression(text);
    tree_ = Tree();
    tree_.setRoot();
    evaluationFault_ = Fault::none;
    compileError_ = {};

    ParsedValue value;
    if (chain(Level::bExpression, value, true, tree_) && expectEnd()) makeCondition(value);
    program_ = Program(tree_);
    parsed_ = true;
    if (hasCompileError() || !isComputing()) return 1;
    value.copyTo(result);
    return 0;
}

int SyntaxAnalyzer::parse(const Fields* fields, const Fields* variables, ExpValue& result,
                          bool caseSensitive) {
    if (!parsed_) return 1;
    Value value;
    evaluationFault_ = program_.run(fields, variables, caseSensitive, value);
    if (evaluationFault_ != Fault::none) return 1;
    result.set(value.type, value.number, value.text);
    return 0;
}

bool SyntaxAnalyzer::expectEnd() {
    nextToken();
    if (lexer_.getLastError() == LEX_END) return true;
    debug("SyntaxAnalyzer::parse - expected operator.\n");
    return failSyntax("operator expected");
}

namespace {

/// Whether the tree can be seen to have the value 0 or 1 for every record.
bool isCondition(const TreeNode& root) {
    const Token& token = root.data;
    const int type = token.getType();
    if (type == TOKEN_NUMBER) return token.getNumericValue() == 0 || token.getNumericValue() == 1;
    return type == TOKEN_OPREL || type == TOKEN_OPBOOL || type == TOKEN_COMMAND;
}

}  // namespace

/// Appends "!= 0" to the criteria of a search if its value is a number: otherwise a scan would
/// match at 1 alone, and a record set at all numbers above 0.
void SyntaxAnalyzer::makeCondition(ParsedValue& value) {
    if (criteriaRules_ != CriteriaRules::search || value.type != NUMERIC) return;
    if (isCondition(*tree_.getRoot())) return;
    Token zero, notEqual;
    zero.setType(TOKEN_NUMBER);
    notEqual.setType(TOKEN_OPREL);
    notEqual.setNumericValue(COMPARE_NOT_EQUAL);
    Tree right;
    right.setRoot();
    Tree::setData(right.getRoot(), zero);
    tree_.merge(&right);
    Tree::setData(tree_.getRoot(), notEqual);
    value.number = value.number != 0;
}

SyntaxAnalyzer::Level SyntaxAnalyzer::levelOf(Operator op) {
    switch (op) {
        case Operator::logicalOr:
            return Level::bExpression;
        case Operator::logicalAnd:
            return Level::bTerm;
        case Operator::add:
        case Operator::subtract:
        case Operator::bitOr:
            return Level::expression;
        case Operator::multiply:
        case Operator::divide:
        case Operator::bitAnd:
            return Level::term;
        default:
            return Level::relation;
    }
}

/// The name of the level in the debug log.
const char* SyntaxAnalyzer::levelName(Level level) {
    static constexpr const char* names[] = {"bExpression", "bTerm", "relation", "expression",
                                            "term"};
    return names[static_cast<std::size_t>(level)];
}

/// Reads operands that are joined by operators of this level and of tighter ones. The right
/// operand of an operator is read at the next tighter level, into a value and a tree of
/// its own.
bool SyntaxAnalyzer::chain(Level loosest, ParsedValue& left, bool evaluate, Tree& tree) {
    const bool hadKey = key_.found();
    if (!factor(left, evaluate, tree)) return false;
    while (const auto token = takeOperator(loosest)) {
        const std::size_t position = position_;
        const Operator op = *operatorOf(*token);
        ParsedValue right;
        Tree rightTree;
        rightTree.setRoot();
        if (!rightOperand(levelOf(op), left, right, evaluate, rightTree)) return false;
        if (op == Operator::logicalOr && !hadKey) key_.drop();
        tree.merge(&rightTree);
        tree.setData(tree.getRoot(), *token);
        if (!combine(op, position, left, right)) return false;
    }
    return true;
}

/// Reads the right operand of an operator of this level.
bool SyntaxAnalyzer::tighter(Level level, ParsedValue& value, bool evaluate, Tree& tree) {
    if (level == Level::term) return factor(value, evaluate, tree);
    return chain(static_cast<Level>(static_cast<int>(level) + 1), value, evaluate, tree);
}

/// `evaluate` becomes false behind a "||" whose left side is true and behind a "&&" whose left
/// side is false: the value decides nothing there. It is computed all the same.
bool SyntaxAnalyzer::rightOperand(Level level, const ParsedValue& left, ParsedValue& right,
                                  bool evaluate, Tree& tree) {
    if (level == Level::bExpression) {
        key_.beginAlternative();
        const bool read = tighter(level, right, evaluate && left.number == 0, tree);
        key_.endAlternative();
        return read;
    }
    if (level != Level::bTerm) return tighter(level, right, evaluate, tree);
    if (!tighter(level, right, evaluate && left.number != 0, tree)) return false;
    key_.endConjunct();
    return true;
}

/// Takes the next token if it is an operator of that level or a tighter one, else
/// leaves it.
std::optional<Token> SyntaxAnalyzer::takeOperator(Level loosest) {
    Token token = nextToken();
    const auto op = operatorOf(token);
    if (op && !isUnary(*op) && levelOf(*op) >= loosest) return token;
    lexer_.back();
    return std::nullopt;
}

namespace {

void logOperandTypes(const char* level, Operator op, Fault fault) {
    if (fault == Fault::notOnTexts) {
        debug("SyntaxAnalyzer::%s - operator '%ls' not permitted on string type\n", level,
              spelling(op));
    } else if (isRelation(op)) {
        debug("SyntaxAnalyzer::%s - %s operands of different types!\n", level, level);
    } else {
        debug("SyntaxAnalyzer::%s - %s operands of different types or not NUMERIC\n", level, level);
    }
}

}  // namespace

bool SyntaxAnalyzer::combine(Operator op, std::size_t position, ParsedValue& left,
                             const ParsedValue& right) {
    const Fault mismatch = checkTypes(op, left.type, right.type);
    if (mismatch != Fault::none) {
        logOperandTypes(levelName(levelOf(op)), op, mismatch);
        return failCompile(operandTypesText(op, mismatch), position);
    }
    if (op == Operator::equal) key_.consider(left, right);
    left.origin = originOf(op, left.type, left.origin, right.origin);
    Value result{resultType(op, left.type), 0, L""};
    if (isComputing()) {
        const Fault fault = apply(op, rules_, left.value(), right.value(), left.text, result);
        if (fault != Fault::none) failEvaluation(fault, left, right);
    }
    // A value that was not computed must not be looked up as a constant.
    if (!isComputing()) left.origin = {L"", 0, 2};
    left.take(result);
    return true;
}

bool SyntaxAnalyzer::factor(ParsedValue& value, bool evaluate, Tree& tree) {
    const Token token = nextToken();
    switch (token.getType()) {
        case TOKEN_NUMBER:
        case TOKEN_STRING:
            literal(token, value, tree);
            return true;
        case TOKEN_FIELD:
        case TOKEN_VARIABLE:
            return named(token, value, tree);
        case TOKEN_OP:
            return sign(token, value, evaluate, tree);
        case TOKEN_OPBOOL:
            return negation(token, value, evaluate, tree);
        case TOKEN_PARENTESI:
            // A ")" in an operand's place ends it without a value, on purpose: "1 + )" is 1.
            return token.getNumericValue() == PAREN_CLOSE || parenthesis(value, evaluate, tree);
        case TOKEN_COMMAND:
            return command(token, value, evaluate, tree);
        default:
            debug("SyntaxAnalyzer::factor - unexpected sequence!\n");
            return failSyntax("operand expected");
    }
}

void SyntaxAnalyzer::literal(const Token& token, ParsedValue& value, Tree& tree) {
    tree.setData(tree.getRoot(), token);
    value.type = token.getType() == TOKEN_STRING ? STRING : NUMERIC;
    value.number = token.getNumericValue();
    value.text = token.text();
}

bool SyntaxAnalyzer::named(const Token& token, ParsedValue& value, Tree& tree) {
    const Fields* list = token.getType() == TOKEN_FIELD ? fields_ : variables_;
    const Field* field = list ? list->name(token.text()) : nullptr;
    if (!field && isNeverFilled(token)) {
        Token empty;
        empty.setType(TOKEN_STRING);
        literal(empty, value, tree);
        return true;
    }
    Value read;
    const Fault fault = readField(field, rules_.pass, read);
    if (fault == Fault::unknownName) {
        debug("SyntaxAnalyzer::factor - variable specified not found!\n");
        return failCompile(unknownNameText(token), position_);
    }
    if (fault == Fault::unknownType) {
        debug("SyntaxAnalyzer::factor - typeXXX unknown!\n");
        return failCompile("field of an unknown type", position_);
    }
    tree.setData(tree.getRoot(), token);
    if (fault != Fault::none) failEvaluation(fault, value, value);
    value.take(isComputing() ? read : Value{read.type, 0, L""});
    value.origin = {std::wstring(token.text()), 0, 1};
    return true;
}

/// Every search has this field, and no file has a value in it. The cache does not store it.
bool SyntaxAnalyzer::isNeverFilled(const Token& token) const {
    return criteriaRules_ == CriteriaRules::search && token.getType() == TOKEN_FIELD &&
           token.text() == L"SHORTFILENAME";
}

bool SyntaxAnalyzer::sign(Token token, ParsedValue& value, bool evaluate, Tree& tree) {
    if (token.getNumericValue() != OP_ADD && token.getNumericValue() != OP_SUBTRACT) {
        debug("SyntaxAnalyzer::factor - expected '+' or '-'!\n");
        return failSyntax("operand expected");
    }
    token.setNumericValue(token.getNumericValue() == OP_ADD ? OP_PLUS : OP_MINUS);
    return unary(token, value, evaluate, tree);
}

bool SyntaxAnalyzer::negation(const Token& token, ParsedValue& value, bool evaluate, Tree& tree) {
    if (token.getNumericValue() != BOOL_NOT) {
        debug("SyntaxAnalyzer::factor - expected '!'\n");
        return failSyntax("operand expected");
    }
    const bool hadKey = key_.found();
    if (!unary(token, value, evaluate, tree)) return false;
    if (!hadKey) key_.drop();
    return true;
}

bool SyntaxAnalyzer::unary(const Token& token, ParsedValue& value, bool evaluate, Tree& tree) {
    const Operator op = *operatorOf(token);
    const std::size_t position = position_;
    const Nesting nesting(*this);
    if (nesting.isTooDeep()) return failDepth();
    if (!factor(value, evaluate, tree)) return false;
    Tree empty;
    empty.setRoot();
    tree.merge(&empty);
    tree.setData(tree.getRoot(), token);
    if (checkTypes(op, value.type, value.type) != Fault::none) {
        debug("SyntaxAnalyzer::factor - factor operand is not NUMERIC\n");
        return failCompile(operandTypesText(op, Fault::operandTypes), position);
    }
    value.origin = originOf(op, value.type, value.origin, value.origin);
    Value result = value.value();
    // No unary operator fails on a number.
    (void)apply(op, rules_, result, result, value.text, result);
    value.take(result);
    return true;
}

bool SyntaxAnalyzer::parenthesis(ParsedValue& value, bool evaluate, Tree& tree) {
    const Nesting nesting(*this);
    if (nesting.isTooDeep()) return failDepth();
    if (!chain(Level::bExpression, value, evaluate, tree)) return false;
    if (nextToken().is(TOKEN_PARENTESI, PAREN_CLOSE)) return true;
    debug("SyntaxAnalyzer::factor - expected ')'\n");
    return failSyntax("')' expected");
}

Token SyntaxAnalyzer::nextToken() {
    Token token = lexer_.nextToken();
    position_ = lexer_.tokenPosition();
    return token;
}

bool SyntaxAnalyzer::failSyntax(std::string_view expected) {
    compileError_ = syntaxError(lexer_, expected);
    return false;
}

bool SyntaxAnalyzer::failDepth() {
    debug("SyntaxAnalyzer::factor - nested too deeply!\n");
    return failCompile("nested more than " + std::to_string(kMaxDepth) + " levels deep", position_);
}

bool SyntaxAnalyzer::failCompile(std::string text, std::size_t position) {
    compileError_ = {std::move(text), position};
    return false;
}

/// From here on nothing is computed and no command is executed: only the first error is
/// reported.
void SyntaxAnalyzer::failEvaluation(Fault fault, const ParsedValue& left,
                                    const ParsedValue& right) {
    if (!isComputing()) return;
    evaluationFault_ = fault;
    switch (fault) {
        case Fault::textTooLong:
            return debug("SyntaxAnalyzer::factor - string space not available\n");
        case Fault::noRoom:
            return debug(
                "SyntaxAnalyzer::expression - string space not available for concatenation\n");
        case Fault::twoPatterns:
            return debug(
                "SyntaxAnalyzer::relation - can't compare two wildcard string [%ls][%ls]!\n",
                left.text.c_str(), right.text.c_str());
        case Fault::zeroDivisor:
            return debug("SyntaxAnalyzer::term - division by zero!\n");
        default:
            return;
    }
}

// ---- Commands ---------------------------------------------------------------

/// The node is built even when the call is wrong. Otherwise later evaluations of the tree would
/// take the first argument for the whole call, instead of failing as well.
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
    // The result of a command counts as neither field nor constant: no index can have its key.
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

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "fscanner/common/fields.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/expr/command.h"
#include "fscanner/expr/lexer.h"

/// The operators of the criteria language, their typing rules and what they
/// compute. Reading a criteria evaluates it too, and so does its compiled form:
/// both go through here, and differ in what depends on `Pass` alone.
namespace fscanner {

/// The relations come first and in the order of their codes.
enum class Operator : unsigned char {
    equal = COMPARE_EQUAL,
    greaterEqual = COMPARE_GREATER_EQUAL,
    lessEqual = COMPARE_LESS_EQUAL,
    greater = COMPARE_GREATER,
    less = COMPARE_LESS,
    notEqual = COMPARE_NOT_EQUAL,
    add,
    subtract,
    multiply,
    divide,
    bitAnd,
    bitOr,
    plus,
    minus,
    logicalAnd,
    logicalOr,
    logicalNot,
};

/// The operator of a token; nothing for operands, commands and punctuation.
std::optional<Operator> operatorOf(const Token& token);
const wchar_t* spelling(Operator op);
bool isUnary(Operator op);
bool isRelation(Operator op);
/// "+", "-", "*", "/", "&" and "|" between two operands.
bool isArithmetic(Operator op);

/// An operand during an evaluation. Every text is followed by a terminator and
/// belongs to somebody else: a literal, a field, a buffer of the evaluation.
/// The number of a text is 0.
struct Value {
    char type = NUMERIC;
    long long number = 0;
    std::wstring_view text = L"";
};

/// Which evaluation it is: the one that accompanies the reading of the criteria,
/// or one of the compiled criteria.
enum class Pass { reading, compiled };

struct EvaluationRules {
    Pass pass = Pass::compiled;
    bool caseSensitive = true;
    bool dryRun = false;  ///< over empty fields: commands and zero divisors do not count
};

/// Why an operand or an operator has no value.
enum class Fault {
    none,
    // The criteria does not compile.
    operandTypes,   ///< operands of different types, or texts where numbers are needed
    notOnTexts,     ///< an operator that takes two numbers, on two texts
    argumentTypes,  ///< a command's argument is not of the declared type
    unknownName,    ///< no such field or variable
    unknownType,    ///< a field of a type that the language does not have
    // It cannot be evaluated on this record.
    zeroDivisor,
    twoPatterns,  ///< both sides of an equality hold a wildcard
    textTooLong,  ///< a field's text passes the limit
    noRoom,       ///< a concatenation passes the limit
    commandGone,  ///< the command list was emptied since
    commandFailed,
};

constexpr bool isCompileFault(Fault fault) {
    return fault != Fault::none && fault < Fault::zeroDivisor;
}

/// The typing rule: which pairs of types an operator takes. Unary ones ignore `right`.
Fault checkTypes(Operator op, char left, char right);
/// The type of the result for operands that `checkTypes` accepts.
char resultType(Operator op, char left);

/// Checks the types and computes. A concatenation is built in `joined`, which
/// the left operand may be: a chain of them then grows one buffer. `out` is
/// left alone on a fault, and may be one of the operands.
Fault apply(Operator op, const EvaluationRules& rules, const Value& left, const Value& right,
            std::wstring& joined, Value& out);

/// Whether two texts are equal, where a wildcard in one makes it a pattern for the other.
Fault textsEqual(const Value& left, const Value& right, bool caseSensitive, bool& equal);
/// Whether the text holds a "*" or a "?".
bool hasWildcard(std::wstring_view text);

/// Reads a field or variable; null is an unknown name.
Fault readField(const Field* field, Pass pass, Value& out);

}  // namespace fscanner

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "fscanner/common/fields.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/expr/command.h"
#include "fscanner/expr/lexer.h"

/// The operators of the criteria language: their typing rules and their results. A criteria is
/// evaluated while it is read, and later in its compiled form. Both use these functions, and
/// differ only where the result depends on `Pass`.
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

/// An operand during an evaluation. A text is followed by a terminator, and a literal, a field
/// or a buffer of the evaluation owns it. The number of a text is 0.
struct Value {
    char type = NUMERIC;
    long long number = 0;
    std::wstring_view text = L"";
};

/// The kind of evaluation: the one while the criteria is read, or a later one of the compiled
/// criteria.
enum class Pass { reading, compiled };

struct EvaluationRules {
    Pass pass = Pass::compiled;
    bool caseSensitive = true;
    bool dryRun = false;  ///< over empty fields: no commands are run, zero divisors are no error
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

/// Checks the types and computes. A concatenation is built in `joined`. The left operand may be
/// in `joined` already: a chain of concatenations then grows one buffer. On a fault `out` is
/// unchanged. It may be one of the operands.
Fault apply(Operator op, const EvaluationRules& rules, const Value& left, const Value& right,
            std::wstring& joined, Value& out);

/// Whether two texts are equal, where a wildcard in one makes it a pattern for the other.
Fault textsEqual(const Value& left, const Value& right, bool caseSensitive, bool& equal);
/// Whether the text holds a "*" or a "?".
bool hasWildcard(std::wstring_view text);

/// Reads a field or variable. Null stands for an unknown name.
Fault readField(const Field* field, Pass pass, Value& out);

}  // namespace fscanner

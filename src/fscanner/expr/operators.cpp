#include "fscanner/expr/operators.h"

#include <cstdint>

namespace fscanner {

namespace {

constexpr const wchar_t* kSpellings[] = {L"==", L">=", L"<=", L">", L"<", L"!=", L"+",  L"-", L"*",
                                         L"/",  L"&",  L"|",  L"+", L"-", L"&&", L"||", L"!"};

std::optional<Operator> arithmeticOf(long long code) {
    switch (code) {
        case OP_ADD:
            return Operator::add;
        case OP_PLUS:
            return Operator::plus;
        case OP_SUBTRACT:
            return Operator::subtract;
        case OP_MINUS:
            return Operator::minus;
        case OP_MULTIPLY:
            return Operator::multiply;
        case OP_DIVIDE:
            return Operator::divide;
        case OP_BIT_AND:
            return Operator::bitAnd;
        case OP_BIT_OR:
            return Operator::bitOr;
        default:
            return std::nullopt;
    }
}

/// "&" and "|" use 32 bits while the criteria is read and 64 bits afterwards, on purpose. So the
/// first evaluation of a negative or large operand can differ from later ones.
long long bitOperand(long long n, Pass pass) {
    return pass == Pass::reading ? static_cast<std::uint32_t>(n) : n;
}

/// Takes the low half of an `Int64Field` while the criteria is read, and all of it later. This is
/// on purpose.
long long wideOperand(unsigned long long n, Pass pass) {
    return pass == Pass::reading ? static_cast<std::int32_t>(n) : static_cast<long long>(n);
}

/// Arithmetic wraps around: it is done on unsigned numbers.
using Bits = unsigned long long;
long long wrapped(Bits n) {
    return static_cast<long long>(n);
}
long long negated(long long n) {
    return wrapped(0 - static_cast<Bits>(n));
}

Fault divide(const EvaluationRules& rules, long long left, long long right, long long& out) {
    if (right == 0 && !rules.dryRun) return Fault::zeroDivisor;
    // The quotient of the smallest number and -1 does not fit, and wraps around too.
    if (right == 0) {
        out = 0;
    } else {
        out = right == -1 ? negated(left) : left / right;
    }
    return Fault::none;
}

/// The relations have the codes of `holds`.
template <typename T>
bool compare(Operator relation, T left, T right) {
    return holds(left, static_cast<unsigned>(relation), right);
}

Fault onNumbers(Operator op, const EvaluationRules& rules, long long l, long long r,
                long long& out) {
    const auto left = static_cast<Bits>(l);
    const auto right = static_cast<Bits>(r);
    switch (op) {
        case Operator::add:
            out = wrapped(left + right);
            break;
        case Operator::subtract:
            out = wrapped(left - right);
            break;
        case Operator::multiply:
            out = wrapped(left * right);
            break;
        case Operator::divide:
            return divide(rules, l, r, out);
        case Operator::bitAnd:
            out = bitOperand(l, rules.pass) & bitOperand(r, rules.pass);
            break;
        case Operator::bitOr:
            out = bitOperand(l, rules.pass) | bitOperand(r, rules.pass);
            break;
        case Operator::plus:
            out = l;
            break;
        case Operator::minus:
            out = negated(l);
            break;
        case Operator::logicalAnd:
            out = l != 0 && r != 0;
            break;
        case Operator::logicalOr:
            out = l != 0 || r != 0;
            break;
        case Operator::logicalNot:
            out = l == 0;
            break;
        default:
            out = compare(op, l, r);
    }
    return Fault::none;
}

Fault join(const Value& left, const Value& right, std::wstring& joined, Value& out) {
    if (left.text.size() + right.text.size() + 1 > ExpValue::kMaxText) return Fault::noRoom;
    if (left.text.data() != joined.data()) joined.assign(left.text);
    joined.append(right.text);
    out = {STRING, 0, joined};
    return Fault::none;
}

Fault onTexts(Operator op, const EvaluationRules& rules, const Value& left, const Value& right,
              std::wstring& joined, Value& out) {
    if (op == Operator::add) return join(left, right, joined, out);
    bool holds = false;
    if (op == Operator::equal || op == Operator::notEqual) {
        const Fault fault = textsEqual(left, right, rules.caseSensitive, holds);
        if (fault != Fault::none) return fault;
        holds = holds == (op == Operator::equal);
    } else {
        holds = compare(op, wcsvccmp(left.text.data(), right.text.data(), rules.caseSensitive), 0);
    }
    out = {NUMERIC, holds, L""};
    return Fault::none;
}

}  // namespace

std::optional<Operator> operatorOf(const Token& token) {
    const long long code = token.getNumericValue();
    switch (token.getType()) {
        case TOKEN_OP:
            return arithmeticOf(code);
        case TOKEN_OPREL:
            return static_cast<Operator>(code);
        case TOKEN_OPBOOL:
            if (code == BOOL_NOT) return Operator::logicalNot;
            return code == BOOL_AND ? Operator::logicalAnd : Operator::logicalOr;
        default:
            return std::nullopt;
    }
}

const wchar_t* spelling(Operator op) {
    return kSpellings[static_cast<std::size_t>(op)];
}

bool isUnary(Operator op) {
    return op == Operator::plus || op == Operator::minus || op == Operator::logicalNot;
}

bool isRelation(Operator op) {
    return op <= Operator::notEqual;
}

bool isArithmetic(Operator op) {
    return op >= Operator::add && op <= Operator::bitOr;
}

Fault checkTypes(Operator op, char left, char right) {
    if (!checkType(left)) return Fault::operandTypes;
    if (isUnary(op)) return left == NUMERIC ? Fault::none : Fault::operandTypes;
    if (left != right) return Fault::operandTypes;
    if (left == NUMERIC || isRelation(op) || op == Operator::add) return Fault::none;
    const bool sumLevel = op == Operator::subtract || op == Operator::bitOr;
    return sumLevel ? Fault::notOnTexts : Fault::operandTypes;
}

char resultType(Operator op, char left) {
    return op == Operator::add ? left : char{NUMERIC};
}

Fault apply(Operator op, const EvaluationRules& rules, const Value& left, const Value& right,
            std::wstring& joined, Value& out) {
    const Fault mismatch = checkTypes(op, left.type, right.type);
    if (mismatch != Fault::none) return mismatch;
    if (left.type == STRING) return onTexts(op, rules, left, right, joined, out);
    long long number = 0;
    const Fault fault = onNumbers(op, rules, left.number, right.number, number);
    if (fault == Fault::none) out = {NUMERIC, number, L""};
    return fault;
}

Fault textsEqual(const Value& left, const Value& right, bool caseSensitive, bool& equal) {
    const bool leftPattern = hasWildcard(left.text);
    const bool rightPattern = hasWildcard(right.text);
    if (leftPattern && rightPattern) return Fault::twoPatterns;
    const wchar_t* const a = left.text.data();
    const wchar_t* const b = right.text.data();
    if (leftPattern) {
        equal = wildvccmp(a, b, caseSensitive) == 1;
    } else if (rightPattern) {
        equal = wildvccmp(b, a, caseSensitive) == 1;
    } else {
        equal = wcsvccmp(a, b, caseSensitive) == 0;
    }
    return Fault::none;
}

bool hasWildcard(std::wstring_view text) {
    for (const wchar_t c : text) {
        if (c == L'*' || c == L'?') return true;
    }
    return false;
}

namespace {

template <typename F>
const F& fieldOf(const Field& field) {
    return static_cast<const F&>(field);
}

}  // namespace

Fault readField(const Field* field, Pass pass, Value& out) {
    if (!field) return Fault::unknownName;
    switch (field->type()) {
        case FIELD_INT8:
            out = {NUMERIC, fieldOf<Int8Field>(*field).value(), L""};
            return Fault::none;
        case FIELD_INT16:
            out = {NUMERIC, fieldOf<Int16Field>(*field).value(), L""};
            return Fault::none;
        case FIELD_INT32:
            out = {NUMERIC, fieldOf<Int32Field>(*field).value(), L""};
            return Fault::none;
        case FIELD_INT64:
            out = {NUMERIC, wideOperand(fieldOf<Int64Field>(*field).value(), pass), L""};
            return Fault::none;
        case FIELD_TEXT:
            out = {STRING, 0, fieldOf<TextField>(*field).view()};
            return out.text.size() > ExpValue::kMaxText ? Fault::textTooLong : Fault::none;
        default:
            return Fault::unknownType;
    }
}

}  // namespace fscanner

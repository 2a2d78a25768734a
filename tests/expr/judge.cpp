#include "expr/judge.h"

#include "fscanner/common/wildcard.h"

namespace fscanner {

namespace {

__extension__ using Wide = __int128;

bool sign(const Token& token) {
    return token.is(TOKEN_OP, OP_PLUS) || token.is(TOKEN_OP, OP_MINUS);
}

}  // namespace

std::optional<Verdict> Judge::evaluate(const TreeNode* root) {
    try {
        return value(root);
    } catch (const Failure&) {
        return std::nullopt;
    }
}

Verdict Judge::value(const TreeNode* node) {
    if (Tree::isLeaf(node)) return leaf(node->data);
    const Token& token = node->data;
    Verdict left = value(node->left.get());
    if (!reading_ && token.is(TOKEN_OPBOOL, BOOL_OR) && left.number == 1) return {NUMERIC, 1, L""};
    if (!reading_ && token.is(TOKEN_OPBOOL, BOOL_AND) && left.number == 0) return {};
    const Verdict right = value(node->right.get());
    if (token.getType() == TOKEN_COMMAND) return call(token, left, right);
    if (!sign(token) && !token.is(TOKEN_OPBOOL, BOOL_NOT)) return binary(token, left, right);
    if (left.type != NUMERIC) throw Failure();
    if (token.is(TOKEN_OP, OP_PLUS)) return left;
    if (token.is(TOKEN_OP, OP_MINUS))
        return {NUMERIC, arithmetic(OP_SUBTRACT, 0, left.number), L""};
    return {NUMERIC, left.number == 0, L""};
}

Verdict Judge::leaf(const Token& token) {
    const std::wstring text(token.text());
    switch (token.getType()) {
        case TOKEN_NUMBER:
            return {NUMERIC, token.getNumericValue(), L""};
        case TOKEN_STRING:
            return {STRING, 0, text};
        case TOKEN_FIELD:
            return field(record_.fields.name(text.c_str()));
        case TOKEN_VARIABLE:
            return field(record_.variables.name(text.c_str()));
        default:
            return {};
    }
}

Verdict Judge::field(const Field* field) {
    Field* f = const_cast<Field*>(field);
    if (!f) throw Failure();
    if (auto* byte = fieldAs<Int8Field>(f)) return {NUMERIC, byte->value(), L""};
    if (auto* small = fieldAs<Int16Field>(f)) return {NUMERIC, small->value(), L""};
    if (auto* medium = fieldAs<Int32Field>(f)) return {NUMERIC, medium->value(), L""};
    if (auto* text = fieldAs<TextField>(f)) return {STRING, 0, text->value() ? text->value() : L""};
    const unsigned long long big = fieldAs<Int64Field>(f)->value();
    if (reading_) return {NUMERIC, static_cast<int>(big & 0xFFFFFFFFU), L""};
    return {NUMERIC, static_cast<long long>(big), L""};
}

Verdict Judge::call(const Token& token, const Verdict& first, const Verdict& second) {
    if (token.text() == L"length") {
        if (first.type != STRING) throw Failure();
        return {NUMERIC, static_cast<long long>(first.text.size()), L""};
    }
    if (first.type != NUMERIC || second.type != STRING) throw Failure();
    calls_.push_back(std::to_wstring(first.number) + second.text);
    if (second.text == L"fail") throw Failure();
    return {STRING, 0, calls_.back()};
}

Verdict Judge::binary(const Token& token, const Verdict& left, const Verdict& right) {
    if (left.type != right.type) throw Failure();
    const long long code = token.getNumericValue();
    if (token.getType() == TOKEN_OPREL) return {NUMERIC, relation(code, left, right), L""};
    if (left.type == STRING) {
        if (!token.is(TOKEN_OP, OP_ADD)) throw Failure();
        if (left.text.size() + right.text.size() + 1 > 131071) throw Failure();
        return {STRING, 0, left.text + right.text};
    }
    if (token.getType() == TOKEN_OP) {
        return {NUMERIC, arithmetic(code, left.number, right.number), L""};
    }
    const bool l = left.number != 0;
    const bool r = right.number != 0;
    return {NUMERIC, code == BOOL_AND ? l && r : l || r, L""};
}

bool Judge::relation(long long code, const Verdict& left, const Verdict& right) {
    long long order = 0;
    if (left.type == NUMERIC) {
        order = left.number < right.number ? -1 : left.number > right.number;
    } else if (code == COMPARE_EQUAL || code == COMPARE_NOT_EQUAL) {
        order = !textsEqual(left.text, right.text);
    } else {
        order = wcsvccmp(left.text.c_str(), right.text.c_str(), caseSensitive_);
    }
    switch (code) {
        case COMPARE_EQUAL:
            return order == 0;
        case COMPARE_NOT_EQUAL:
            return order != 0;
        case COMPARE_GREATER_EQUAL:
            return order >= 0;
        case COMPARE_LESS_EQUAL:
            return order <= 0;
        case COMPARE_GREATER:
            return order > 0;
        default:
            return order < 0;
    }
}

bool Judge::textsEqual(const std::wstring& left, const std::wstring& right) {
    const bool l = checkWildCard(left.c_str());
    const bool r = checkWildCard(right.c_str());
    if (l && r) throw Failure();
    if (l) return wildvccmp(left.c_str(), right.c_str(), caseSensitive_) == 1;
    if (r) return wildvccmp(right.c_str(), left.c_str(), caseSensitive_) == 1;
    return wcsvccmp(left.c_str(), right.c_str(), caseSensitive_) == 0;
}

/// In twice the width, cut to 64 bits afterwards.
long long Judge::arithmetic(long long code, long long left, long long right) {
    const Wide l = left;
    const Wide r = right;
    const Wide mask = reading_ ? Wide{0xFFFFFFFFU} : ~Wide{0};
    Wide result = 0;
    switch (code) {
        case OP_ADD:
            result = l + r;
            break;
        case OP_SUBTRACT:
            result = l - r;
            break;
        case OP_MULTIPLY:
            result = l * r;
            break;
        case OP_DIVIDE:
            if (r == 0) throw Failure();
            result = l / r;
            break;
        case OP_BIT_AND:
            result = l & r & mask;
            break;
        default:
            result = (l | r) & mask;
    }
    return static_cast<long long>(result);
}

}  // namespace fscanner

#pragma once

#include <optional>

#include "expr/sample_record.h"
#include "fscanner/common/wildcard.h"

namespace fscanner {

/// A value as the judge sees it.
struct JudgedValue {
    char type = NUMERIC;
    long long number = 0;
    std::wstring text;
    bool operator==(const JudgedValue&) const = default;
};

/// The slow and obvious evaluation of a tree: it recurses, copies every value,
/// and looks every name up. The fast evaluation is compared with it.
class Judge {
public:
    /// `reading`: as in the evaluation that accompanies the reading of a criteria.
    Judge(const SampleRecord& record, bool caseSensitive, bool reading)
        : record_(record), caseSensitive_(caseSensitive), reading_(reading) {}

    /// Nothing when the tree has no value for the record.
    std::optional<JudgedValue> evaluate(const TreeNode* root) {
        try {
            return value(root);
        } catch (const Failure&) {
            return std::nullopt;
        }
    }
    /// The arguments of the calls of "join".
    const std::vector<std::wstring>& calls() const { return calls_; }

private:
    struct Failure {};
    __extension__ using Wide = __int128;

    static void require(bool condition) {
        if (!condition) throw Failure();
    }
    static JudgedValue number(long long n) { return {NUMERIC, n, L""}; }

    JudgedValue value(const TreeNode* node) {
        const Token& token = node->data;
        if (Tree::isLeaf(node)) return leaf(token);
        const JudgedValue left = value(node->left.get());
        if (!reading_ && token.is(TOKEN_OPBOOL, BOOL_OR) && left.number == 1) return number(1);
        if (!reading_ && token.is(TOKEN_OPBOOL, BOOL_AND) && left.number == 0) return {};
        const JudgedValue right = value(node->right.get());
        if (token.getType() == TOKEN_COMMAND) return call(token, left, right);
        const bool plus = token.is(TOKEN_OP, OP_PLUS), minus = token.is(TOKEN_OP, OP_MINUS);
        if (!plus && !minus && !token.is(TOKEN_OPBOOL, BOOL_NOT)) return binary(token, left, right);
        require(left.type == NUMERIC);
        if (plus) return left;
        return number(minus ? arithmetic(OP_SUBTRACT, 0, left.number) : left.number == 0);
    }

    JudgedValue leaf(const Token& token) {
        const std::wstring text(token.text());
        const auto type = token.getType();
        if (type == TOKEN_NUMBER) return number(token.getNumericValue());
        if (type == TOKEN_STRING) return {STRING, 0, text};
        if (type == TOKEN_FIELD) return field(record_.fields.name(text.c_str()));
        if (type == TOKEN_VARIABLE) return field(record_.variables.name(text.c_str()));
        return {};
    }

    JudgedValue field(const Field* field) {
        Field* f = const_cast<Field*>(field);
        require(f != nullptr);
        if (auto* byte = fieldAs<Int8Field>(f)) return number(byte->value());
        if (auto* small = fieldAs<Int16Field>(f)) return number(small->value());
        if (auto* medium = fieldAs<Int32Field>(f)) return number(medium->value());
        if (auto* text = fieldAs<TextField>(f))
            return {STRING, 0, text->value() ? text->value() : L""};
        const unsigned long long big = fieldAs<Int64Field>(f)->value();
        return number(reading_ ? static_cast<int>(big & 0xFFFFFFFFU) : static_cast<long long>(big));
    }

    JudgedValue call(const Token& token, const JudgedValue& first, const JudgedValue& second) {
        if (token.text() == L"length") {
            require(first.type == STRING);
            return number(static_cast<long long>(first.text.size()));
        }
        require(first.type == NUMERIC && second.type == STRING);
        calls_.push_back(std::to_wstring(first.number) + second.text);
        require(second.text != L"fail");
        return {STRING, 0, calls_.back()};
    }

    JudgedValue binary(const Token& token, const JudgedValue& left, const JudgedValue& right) {
        require(left.type == right.type);
        const long long code = token.getNumericValue();
        if (token.getType() == TOKEN_OPREL) return number(relation(code, left, right));
        if (left.type == STRING) {
            require(token.is(TOKEN_OP, OP_ADD));
            require(left.text.size() + right.text.size() < 131071);
            return {STRING, 0, left.text + right.text};
        }
        if (token.getType() == TOKEN_OP) return number(arithmetic(code, left.number, right.number));
        const bool l = left.number != 0, r = right.number != 0;
        return number(code == BOOL_AND ? l && r : l || r);
    }

    bool relation(long long code, const JudgedValue& left, const JudgedValue& right) {
        long long order = 0;
        if (left.type == NUMERIC) {
            order = left.number < right.number ? -1 : left.number > right.number;
        } else if (code == COMPARE_EQUAL || code == COMPARE_NOT_EQUAL) {
            order = !textsEqual(left.text, right.text);
        } else {
            order = wcsvccmp(left.text.c_str(), right.text.c_str(), caseSensitive_);
        }
        if (code == COMPARE_EQUAL) return order == 0;
        if (code == COMPARE_NOT_EQUAL) return order != 0;
        if (code == COMPARE_GREATER_EQUAL) return order >= 0;
        if (code == COMPARE_LESS_EQUAL) return order <= 0;
        return code == COMPARE_GREATER ? order > 0 : order < 0;
    }

    bool textsEqual(const std::wstring& left, const std::wstring& right) {
        const bool l = checkWildCard(left.c_str()), r = checkWildCard(right.c_str());
        require(!l || !r);
        if (l) return wildvccmp(left.c_str(), right.c_str(), caseSensitive_) == 1;
        if (r) return wildvccmp(right.c_str(), left.c_str(), caseSensitive_) == 1;
        return wcsvccmp(left.c_str(), right.c_str(), caseSensitive_) == 0;
    }

    /// In twice the width, cut to 64 bits afterwards.
    long long arithmetic(long long code, Wide left, Wide right) {
        const Wide mask = reading_ ? Wide{0xFFFFFFFFU} : ~Wide{0};
        require(code != OP_DIVIDE || right != 0);
        Wide result = (left | right) & mask;
        if (code == OP_ADD) result = left + right;
        if (code == OP_SUBTRACT) result = left - right;
        if (code == OP_MULTIPLY) result = left * right;
        if (code == OP_DIVIDE) result = left / right;
        if (code == OP_BIT_AND) result = left & right & mask;
        return static_cast<long long>(result);
    }

    const SampleRecord& record_;
    bool caseSensitive_;
    bool reading_;
    std::vector<std::wstring> calls_;
};

}  // namespace fscanner

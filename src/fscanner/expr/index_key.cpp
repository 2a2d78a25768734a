#include "fscanner/expr/index_key.h"

#include <algorithm>

namespace fscanner {

// ---- Of the tree ------------------------------------------------------------

namespace {

bool isField(const TreeNode* node) {
    return Tree::isLeaf(node) && node->data.getType() == TOKEN_FIELD;
}

bool isLiteral(const TreeNode* node) {
    if (!Tree::isLeaf(node)) return false;
    return node->data.getType() == TOKEN_NUMBER || node->data.getType() == TOKEN_STRING;
}

/// The relation with its sides exchanged.
CompareOperator mirrored(CompareOperator relation) {
    switch (relation) {
        case COMPARE_GREATER_EQUAL:
            return COMPARE_LESS_EQUAL;
        case COMPARE_LESS_EQUAL:
            return COMPARE_GREATER_EQUAL;
        case COMPARE_GREATER:
            return COMPARE_LESS;
        case COMPARE_LESS:
            return COMPARE_GREATER;
        default:
            return relation;
    }
}

/// Whether all texts that equal this one have the same key in an index. Keys fold to upper
/// case, comparisons to lower case. In ASCII both agree, except for two letters: the dotted
/// capital I and the Kelvin sign fold to "i" and "k", which fold to other capitals. Other scripts
/// have more such letters.
bool hasOneKey(std::wstring_view text, bool caseSensitive) {
    return caseSensitive || std::all_of(text.begin(), text.end(), [](wchar_t c) {
               return c > 0 && c < 0x80 && c != L'i' && c != L'I' && c != L'k' && c != L'K';
           });
}

}  // namespace

std::optional<FieldComparison> fieldComparison(const TreeNode& node) {
    if (node.data.getType() != TOKEN_OPREL) return std::nullopt;
    const auto relation = static_cast<CompareOperator>(node.data.getNumericValue());
    const TreeNode* left = Tree::getLeft(&node);
    const TreeNode* right = Tree::getRight(&node);
    if (isField(left) && isLiteral(right))
        return FieldComparison{&left->data, &right->data, relation};
    if (isLiteral(left) && isField(right))
        return FieldComparison{&right->data, &left->data, mirrored(relation)};
    return std::nullopt;
}

std::vector<ExpValue> indexKeys(const Tree& criteria, bool caseSensitive) {
    std::vector<ExpValue> keys;
    for (const TreeNode* condition : conjuncts(criteria)) {
        const auto comparison = fieldComparison(*condition);
        if (!comparison || comparison->relation != COMPARE_EQUAL) continue;
        const Token& literal = *comparison->literal;
        const bool isText = literal.getType() == TOKEN_STRING;
        if (isText && (hasWildcard(literal.text()) || !hasOneKey(literal.text(), caseSensitive)))
            continue;
        ExpValue& key = keys.emplace_back();
        key.set(isText ? STRING : NUMERIC, literal.getNumericValue(), literal.text());
        key.setNValueString(comparison->field->text());
    }
    return keys;
}

// ---- Of the reading ---------------------------------------------------------

Origin originOf(Operator op, char type, const Origin& left, const Origin& right) {
    if (op == Operator::plus || op == Operator::minus) return left;
    if (op == Operator::add && type == STRING) return {L"", left.constants, left.fields};
    if (isArithmetic(op)) {
        return {L"", left.constants + right.constants, left.fields + right.fields};
    }
    const bool fromFields = left.fields != 0 || right.fields != 0;
    return fromFields ? Origin{L"", 0, 1} : Origin{L"", 1, 0};
}

void ParsedValue::take(const Value& value) {
    if (value.text.data() != text.data()) text.assign(value.text);
    type = value.type;
    number = value.number;
}

void ParsedValue::copyTo(ExpValue& out) const {
    out.set(type, number, text);
    out.setNValueString(origin.name);
    out.setCounts(origin.constants, origin.fields);
}

void IndexKeyFinder::beginAlternative() {
    ++depth_;
    valid_ = false;
}

void IndexKeyFinder::consider(const ParsedValue& left, const ParsedValue& right) {
    if (found()) return;
    if (left.origin.isField() && right.origin.isConstant()) record(left, right);
    if (left.origin.isConstant() && right.origin.isField()) record(right, left);
}

/// A pattern matches texts of many keys, so it is not a key.
void IndexKeyFinder::record(const ParsedValue& field, const ParsedValue& constant) {
    if (constant.type == STRING && hasWildcard(constant.text)) return;
    key_ = constant;
    key_.origin.name = field.origin.name;
}

bool IndexKeyFinder::get(ExpValue& out) const {
    if (!valid_ || !found()) return false;
    key_.copyTo(out);
    return true;
}

}  // namespace fscanner

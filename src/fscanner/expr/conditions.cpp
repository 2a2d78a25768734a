#include "fscanner/expr/conditions.h"

#include <optional>

#include "fscanner/expr/index_key.h"

namespace fscanner {

namespace {

std::optional<unsigned> positionOf(std::wstring_view name, const Fields& schema) {
    for (unsigned i = 0; i < schema.count(); ++i) {
        if (name == schema.at(i)->name()) return i;
    }
    return std::nullopt;
}

bool isEquality(CompareOperator relation) {
    return relation == COMPARE_EQUAL || relation == COMPARE_NOT_EQUAL;
}

}  // namespace

Conditions::Conditions(const Tree& criteria, const Fields& schema, bool caseSensitive, First first,
                       std::span<const unsigned> unknown) {
    for (const TreeNode* node : conjuncts(criteria))
        if (!add(*node, schema, caseSensitive, unknown)) isWhole_ = false;
    const auto rank = [first](const Condition& condition) {
        return std::pair(condition.isText != (first == First::texts), condition.field);
    };
    std::stable_sort(conditions_.begin(), conditions_.end(),
                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
}

/// False when the condition is left to the evaluation.
bool Conditions::add(const TreeNode& node, const Fields& schema, bool caseSensitive,
                     std::span<const unsigned> unknown) {
    const auto comparison = fieldComparison(node);
    if (!comparison || comparison->relation > COMPARE_NOT_EQUAL) return false;
    const auto field = positionOf(comparison->field->text(), schema);
    if (!field || std::find(unknown.begin(), unknown.end(), *field) != unknown.end()) return false;
    const Token& literal = *comparison->literal;
    Condition condition{*field, comparison->relation, schema.at(*field)->type() == FIELD_TEXT,
                        literal.getNumericValue(), CompiledPattern(literal.text(), caseSensitive)};
    if (condition.isText != (literal.getType() == TOKEN_STRING)) return false;
    if (condition.isText && !(isEquality(condition.relation) && condition.pattern.judgesBytes()))
        return false;
    conditions_.push_back(std::move(condition));
    return true;
}

const Condition* Conditions::onlyFirstText() const {
    if (conditions_.size() != 1) return nullptr;
    const Condition& condition = conditions_.front();
    return condition.isText && condition.field == 0 ? &condition : nullptr;
}

}  // namespace fscanner

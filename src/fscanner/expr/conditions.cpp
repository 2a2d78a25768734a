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

bool isTextEquality(const Condition& condition) {
    return condition.isText && condition.relation == COMPARE_EQUAL;
}

/// A comparison that can be judged on stored values.
std::optional<Condition> conditionOf(const TreeNode& node, const Fields& schema,
                                     bool caseSensitive) {
    const auto comparison = fieldComparison(node);
    if (!comparison || comparison->relation > COMPARE_NOT_EQUAL) return std::nullopt;
    const auto field = positionOf(comparison->field->text(), schema);
    if (!field) return std::nullopt;
    const Token& literal = *comparison->literal;
    Condition condition{*field, comparison->relation, schema.at(*field)->type() == FIELD_TEXT,
                        literal.getNumericValue(), CompiledPattern(literal.text(), caseSensitive)};
    if (condition.isText != (literal.getType() == TOKEN_STRING)) return std::nullopt;
    if (condition.isText && !(isEquality(condition.relation) && condition.pattern.judgesBytes()))
        return std::nullopt;
    return condition;
}

}  // namespace

Verdict Condition::judgeTexts(const StoredText& text) const {
    Verdict equal = pattern.judge(text);
    for (auto other = others.begin(); equal == Verdict::noMatch && other != others.end(); ++other)
        equal = other->judge(text);
    return equal;
}

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
    std::optional<Condition> whole;
    for (const TreeNode* operand : disjuncts(node)) {
        auto one = conditionOf(*operand, schema, caseSensitive);
        if (!one || std::find(unknown.begin(), unknown.end(), one->field) != unknown.end())
            return false;
        if (!whole) {
            whole = std::move(one);
        } else if (isTextEquality(*whole) && isTextEquality(*one) && whole->field == one->field) {
            whole->others.push_back(std::move(one->pattern));
        } else {
            return false;
        }
    }
    if (whole) conditions_.push_back(std::move(*whole));
    return whole.has_value();
}

const Condition* Conditions::onlyFirstText() const {
    if (conditions_.size() != 1) return nullptr;
    const Condition& condition = conditions_.front();
    const bool fits = condition.isText && condition.others.empty() && condition.field == 0;
    return fits ? &condition : nullptr;
}

}  // namespace fscanner

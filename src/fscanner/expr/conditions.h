#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/common/pattern.h"
#include "fscanner/common/relation.h"
#include "fscanner/expr/tree.h"

namespace fscanner {

/// The value of a field where it lies: the number, or the text in UTF-8. Not initialised,
/// since a scan makes one for each record.
struct Operand {
    long long number;
    StoredText text;
};

/// A field compared with a literal, or a text with several: `[FILENAME]=="*.h" ||
/// [FILENAME]=="*.c"`.
struct Condition {
    [[gnu::always_inline]] Verdict judge(const Operand& operand) const {
        if (isText) return others.empty() ? judgeText(operand.text) : judgeTexts(operand.text);
        return holds(operand.number, relation, number) ? Verdict::match : Verdict::noMatch;
    }
    [[gnu::always_inline]] Verdict judgeText(const StoredText& text) const {
        const Verdict equal = pattern.judge(text);
        return relation == COMPARE_EQUAL ? equal : opposite(equal);
    }
    /// Judges one literal after the other, up to the first that is not sure to differ: there an
    /// evaluation stops, or may find no value.
    Verdict judgeTexts(const StoredText& text) const;

    unsigned field;
    CompareOperator relation;
    bool isText;
    long long number;
    CompiledPattern pattern;
    std::vector<CompiledPattern> others = {};  // to equal one of these suffices as well
};

/// The cheap conditions of a criteria, judged before the whole is evaluated.
///
/// They are those operands of "&&" at the top of a criteria that compare a field with a
/// literal: numbers by any relation, texts by "==" and "!=". Equalities of one text that "||"
/// joins are one condition. Conditions are judged on values as they lie in a record or in a
/// directory, without decoding one. Where one of them fails, the criteria does, and nothing more
/// is evaluated; where they are all of the criteria and hold, it matches. Everything else is
/// unsure, and left to the evaluation.
class Conditions {
public:
    /// Which operands are the cheaper ones, to be judged first.
    enum class First { numbers, texts };

    Conditions() = default;
    /// The fields are known by their positions in `schema`. Conditions on the fields `unknown` are
    /// left to the evaluation.
    Conditions(const Tree& criteria, const Fields& schema, bool caseSensitive, First first,
               std::span<const unsigned> unknown = {});

    bool isEmpty() const { return conditions_.empty(); }
    /// The condition, if it is one comparison alone, of a text that is the first field; else null.
    const Condition* onlyFirstText() const;
    /// The verdict when all of them hold.
    Verdict best() const { return isWhole_ ? Verdict::match : Verdict::unsure; }

    /// Of any record that has a member `bool read(unsigned field, Operand& operand)`. No field
    /// is asked for behind a failed condition; one that cannot be read ends the test as unsure.
    template <typename Record>
    [[gnu::always_inline]] Verdict judge(Record record) const {
        Verdict verdict = best();
        Operand operand;
        for (const Condition& condition : conditions_) {
            if (!record.read(condition.field, operand)) return Verdict::unsure;
            const Verdict one = condition.judge(operand);
            if (one == Verdict::noMatch) return one;
            verdict = std::min(verdict, one);
        }
        return verdict;
    }

private:
    bool add(const TreeNode& node, const Fields& schema, bool caseSensitive,
             std::span<const unsigned> unknown);

    std::vector<Condition> conditions_;  // the cheap ones first, then in the order of fields
    bool isWhole_ = true;                // the criteria holds nothing else
};

}  // namespace fscanner

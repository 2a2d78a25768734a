#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/common/wildcard.h"
#include "fscanner/expr/tree.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/fields.h"
#include "fscanner/store/record_layout.h"

namespace fscanner {

/// Judges most records on their stored bytes, before anything is decoded.
///
/// It is made of those conditions of a criteria that every match fulfils (its
/// operands of "&&") and that compare a field with a literal: numbers by any
/// relation, texts by "==" and "!=" where the literal is plain ASCII or a pattern
/// of one "*" in front, one behind, or both. When one of them surely fails, so
/// does the criteria; when they are all of it and surely hold, it matches. What is
/// not sure is left to the evaluation: the rest of a criteria, and a stored text
/// of other than plain characters (no ASCII, or itself a pattern).
class RecordFilter {
public:
    RecordFilter() = default;
    RecordFilter(const Tree& criteria, const Fields& schema, bool caseSensitive);

    enum class Verdict { noMatch, unsure, match };

    bool isEmpty() const { return conditions_.empty(); }
    /// Of the record at the start of `record`. A damaged one is unsure at the
    /// damage, and may be judged before it.
    Verdict judge(const RecordLayout& layout, ByteRange record) const;

    /// A literal text, or a pattern of one of these kinds.
    struct TextTest {
        enum class Kind { exact, prefix, suffix, contains };

        bool holds(std::string_view text) const;

        Kind kind = Kind::exact;
        bool fold = false;
        bool holdsForSure = true;  // no letter whose fold depends on the locale
        std::string literal;       // small letters when folding
    };

private:
    struct Condition {
        unsigned field;
        CompareOperator relation;
        bool isText;
        long long number;
        TextTest text;
    };

    void gather(const TreeNode* root, const Fields& schema, bool caseSensitive);
    bool add(const TreeNode* relation, const Fields& schema, bool caseSensitive);
    template <typename Encoding>
    Verdict judgeAs(const RecordLayout& layout, ByteRange record) const;
    static Verdict judgeText(const Condition& condition, std::string_view text);

    std::vector<Condition> conditions_;  // in the order of their fields
    bool isWhole_ = true;                // the criteria holds nothing else
};

}  // namespace fscanner

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

/// Turns most records away on their stored bytes, before anything is decoded.
///
/// It is made of those conditions of a criteria that every match fulfils (its
/// operands of "&&") and that compare a field with a literal: numbers by any
/// relation, texts by "==" and "!=" where the literal is plain ASCII or a pattern
/// of one "*" in front, one behind, or both. When one of them surely fails, so
/// does the criteria. It never says more than that: what passes is evaluated. A
/// stored text of other than plain characters (no ASCII, or itself a pattern)
/// always passes.
class RecordFilter {
public:
    RecordFilter() = default;
    RecordFilter(const Tree& criteria, const Fields& schema, bool caseSensitive);

    bool isEmpty() const { return conditions_.empty(); }
    /// False only when the criteria cannot match the record at the start of
    /// `record`. A damaged record may pass.
    bool mayMatch(const RecordLayout& layout, ByteRange record) const;

    /// A literal text, or a pattern of one of these kinds.
    struct TextTest {
        enum class Kind { exact, prefix, suffix, contains };

        /// Whether a text of plain characters is sure to be the one, or the other.
        bool holds(std::string_view text) const;

        Kind kind = Kind::exact;
        bool fold = false;
        std::string literal;  // small letters when folding
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
    void add(const TreeNode* relation, const Fields& schema, bool caseSensitive);
    template <typename Encoding>
    bool mayMatchAs(const RecordLayout& layout, ByteRange record) const;

    std::vector<Condition> conditions_;  // in the order of their fields
};

}  // namespace fscanner

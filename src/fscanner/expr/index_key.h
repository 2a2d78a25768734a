#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/wildcard.h"
#include "fscanner/expr/operators.h"
#include "fscanner/expr/tree.h"

namespace fscanner {

/// What a value was computed from: how many literals, and how many fields,
/// variables and commands.
struct Origin {
    std::wstring name;  ///< the field or variable that the value is, or empty
    int constants = 1;
    int fields = 0;

    bool isConstant() const { return constants != 0 && fields == 0; }
    bool isField() const { return constants == 0 && fields == 1; }
};

/// Where the result of an operator over values of `type` comes from.
Origin originOf(Operator op, char type, const Origin& left, const Origin& right);

/// A value while a criteria is read: it owns its text.
struct ParsedValue {
    char type = NUMERIC;
    long long number = 0;
    std::wstring text;
    Origin origin;

    Value value() const { return {type, number, text}; }
    /// Becomes that value, whose text may be its own.
    void take(const Value& value);
    void copyTo(ExpValue& out) const;
};

/// A relation between a field and a literal, turned so that the field stands first.
struct FieldComparison {
    const Token* field;
    const Token* literal;
    CompareOperator relation;
};

/// Nothing when the node is anything else.
std::optional<FieldComparison> fieldComparison(const TreeNode& node);

/// The keys that an index may look up instead of testing all records, in order of
/// appearance: each has the name of a field and the literal that it equals in every
/// match.
///
/// A literal with wildcards is no key, nor, with the case ignored, one that equals texts
/// of other keys. A stored text that is itself a pattern equals literals that are not its
/// key: who walks an index on texts has to know that it holds none.
std::vector<ExpValue> indexKeys(const Tree& criteria, bool caseSensitive);

/// Watches the reading of a criteria for what `getHashInfo` tells: an equality between
/// a field and a constant. The first one wins.
///
/// It goes by the counts of the operands alone, on purpose: "-[F]==5" and
/// "([F]==5)==0" give the key F = 5, and "name==5" takes a variable for a field
/// and leaves no room for a later equality. No search goes by it: see `indexKeys`.
class IndexKeyFinder {
public:
    void start() { *this = IndexKeyFinder(); }
    bool found() const { return !key_.origin.name.empty(); }
    /// Drops what was found: it stood under a "!" or beside a "||".
    void drop() { key_ = ParsedValue(); }

    /// Around the right operand of a "||".
    void beginAlternative();
    void endAlternative() { --depth_; }
    /// After the right operand of a "&&".
    void endConjunct() { valid_ = depth_ == 0; }
    /// The operands of an "==".
    void consider(const ParsedValue& left, const ParsedValue& right);

    /// False, and `out` is untouched, when there is no key that holds everywhere.
    bool get(ExpValue& out) const;

private:
    void record(const ParsedValue& field, const ParsedValue& constant);

    ParsedValue key_;
    int depth_ = 0;
    bool valid_ = true;
};

}  // namespace fscanner

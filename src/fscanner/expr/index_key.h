#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/wildcard.h"
#include "fscanner/expr/operators.h"
#include "fscanner/expr/tree.h"

namespace fscanner {

/// The origin of a value: from how many literals, and from how many fields,
/// variables and commands, it was computed.
struct Origin {
    std::wstring name;  ///< of the field or variable, if the value is exactly that; else empty
    int constants = 1;
    int fields = 0;

    bool isConstant() const { return constants != 0 && fields == 0; }
    bool isField() const { return constants == 0 && fields == 1; }
};

/// The origin of the result of an operator over values of `type`.
Origin originOf(Operator op, char type, const Origin& left, const Origin& right);

/// A value while a criteria is read: it owns its text.
struct ParsedValue {
    char type = NUMERIC;
    long long number = 0;
    std::wstring text;
    Origin origin;

    Value value() const { return {type, number, text}; }
    /// Takes over that value. Its text may be this object's own.
    void take(const Value& value);
    void copyTo(ExpValue& out) const;
};

/// A relation between a field and a literal, turned so that the field stands first.
struct FieldComparison {
    const Token* field;
    const Token* literal;
    CompareOperator relation;
};

/// Nothing if the node is not such a comparison.
std::optional<FieldComparison> fieldComparison(const TreeNode& node);

/// The keys that an index may look up instead of testing all records, in order of
/// appearance: each has the name of a field and the literal that it equals in every
/// match.
///
/// A literal with wildcards is not a key. If case is ignored, a literal that equals texts of other
/// keys is not one either. A stored text that is itself a pattern equals literals that are not its
/// key, so an index on texts may be walked only if it holds no patterns.
std::vector<ExpValue> indexKeys(const Tree& criteria, bool caseSensitive);

/// Finds the key for `getHashInfo` while a criteria is read: an equality between
/// a field and a constant. The first one wins.
///
/// It looks only at the counts of the operands, on purpose: "-[F]==5" and "([F]==5)==0" give the
/// key F = 5. "name==5" takes a variable for a field, and a later equality is ignored. Searches
/// use `indexKeys` instead.
class IndexKeyFinder {
public:
    void start() { *this = IndexKeyFinder(); }
    bool found() const { return !key_.origin.name.empty(); }
    /// Drops the key, which was found under a "!" or beside a "||".
    void drop() { key_ = ParsedValue(); }

    /// To be called before and after the right operand of a "||".
    void beginAlternative();
    void endAlternative() { --depth_; }
    /// To be called after the right operand of a "&&".
    void endConjunct() { valid_ = depth_ == 0; }
    /// To be called with the operands of each "==".
    void consider(const ParsedValue& left, const ParsedValue& right);

    /// False, and `out` is unchanged, if there is no key that every match has.
    bool get(ExpValue& out) const;

private:
    void record(const ParsedValue& field, const ParsedValue& constant);

    ParsedValue key_;
    int depth_ = 0;
    bool valid_ = true;
};

}  // namespace fscanner

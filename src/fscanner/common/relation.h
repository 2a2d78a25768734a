#pragma once

namespace fscanner {

/// The six relations. Their codes are those of `checkSimpleExpression`, of the record
/// comparisons and of the relational operators of the criteria language.
enum CompareOperator : unsigned {
    COMPARE_EQUAL = 0,
    COMPARE_GREATER_EQUAL = 1,
    COMPARE_LESS_EQUAL = 2,
    COMPARE_GREATER = 3,
    COMPARE_LESS = 4,
    COMPARE_NOT_EQUAL = 5,
};

/// `left relation right`, in the order of `T`; false for an unknown code.
template <typename T>
constexpr bool holds(T left, unsigned relation, T right) {
    switch (relation) {
        case COMPARE_EQUAL:
            return left == right;
        case COMPARE_GREATER_EQUAL:
            return left >= right;
        case COMPARE_LESS_EQUAL:
            return left <= right;
        case COMPARE_GREATER:
            return left > right;
        case COMPARE_LESS:
            return left < right;
        case COMPARE_NOT_EQUAL:
            return left != right;
        default:
            return false;
    }
}

}  // namespace fscanner

#include "fscanner/expr/index_key.h"

namespace fscanner {

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

/// A pattern stands for many keys: it is none.
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

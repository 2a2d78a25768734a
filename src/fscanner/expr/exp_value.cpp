#include "fscanner/expr/exp_value.h"

#include <cwchar>

namespace fscanner {

void ExpValue::assign(InlineText& target, const wchar_t* text) {
    if (text) {
        target.assign({text, std::wcslen(text)});
    } else {
        target.clear();
    }
}

bool resetExpValue(char type, ExpValue& value) {
    if (!checkType(type)) return false;
    if (type == NUMERIC) value.setNumericValue(0);
    if (type == STRING) value.setStringValue(L"");
    value.setType(type);
    return true;
}

}  // namespace fscanner

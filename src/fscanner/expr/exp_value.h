#pragma once

#include <string_view>

#include "fscanner/common/inline_text.h"

namespace fscanner {

/// The types of the criteria language's values: a signed 64-bit number, a wide text.
enum ValueType : char { NUMERIC = 0, STRING = 1 };

/// Whether `t` is one of the two types.
constexpr bool checkType(char t) {
    return static_cast<unsigned char>(t) < 2;
}

/// A value at the language's borders: the result of a check, the arguments and
/// the result of a command, a hash key. Owns its texts. Within an evaluation
/// the views of `Value` do this work.
class ExpValue {
public:
    /// Limit of a text, in characters: longer ones are an error of the evaluation.
    static constexpr std::size_t MAX_TEXT = 0x1FFFF;

    char getType() const { return type_; }
    void setType(char type) { type_ = type; }
    long long getNumericValue() const { return number_; }
    void setNumericValue(long long number) { number_ = number; }
    /// The text, owned by the value and never null. Setting it leaves the type
    /// as it is; null empties it.
    const wchar_t* getStringValue() const { return text_.c_str(); }
    std::wstring_view text() const { return text_.view(); }
    void setStringValue(const wchar_t* text) { assign(text_, text); }
    void setStringValue(std::wstring_view text) { text_.assign(text); }
    void set(char type, long long number, std::wstring_view text) {
        type_ = type;
        number_ = number;
        // A number after a number, the common case, touches no text.
        if (!text.empty() || !text_.empty()) text_.assign(text);
    }
    /// The field or variable that the value was read from; empty otherwise.
    const wchar_t* getNValueString() const { return name_.c_str(); }
    std::wstring_view name() const { return name_.view(); }
    void setNValueString(const wchar_t* name) { assign(name_, name); }
    void setNValueString(std::wstring_view name) { name_.assign(name); }

    /// How many literals, and how many fields or variables, it was computed from.
    int getConstantCount() const { return constants_; }
    int getFieldCount() const { return fields_; }
    void setCounts(int constants, int fields) {
        constants_ = constants;
        fields_ = fields;
    }

private:
    static void assign(InlineText& target, const wchar_t* text);

    InlineText text_;
    InlineText name_;
    char type_ = NUMERIC;
    int constants_ = 1;
    int fields_ = 0;
    long long number_ = 0;
};

/// Makes the value the default of a type: number 0, or the empty text. False,
/// nothing changed, for any other type.
bool resetExpValue(char type, ExpValue& value);

}  // namespace fscanner

#include "fscanner/expr/lexer.h"

#include <algorithm>
#include <climits>
#include <cwchar>
#include <iterator>
#include <utility>

#include "fscanner/common/wildcard.h"
#include "fscanner/expr/command.h"

namespace fscanner {

signed char toTokenType(char valueType) {
    if (valueType == NUMERIC) return TOKEN_NUMBER;
    return valueType == STRING ? TOKEN_STRING : TOKEN_END;
}

void Token::setStringValue(const wchar_t* text) {
    if (text) {
        text_ = text;
    } else {
        text_.clear();
    }
}

/// A token that is always written the same way.
struct Lexer::Spelling {
    std::wstring_view text;
    unsigned char code;
};

void Lexer::setExpression(const wchar_t* text) {
    hasText_ = text != nullptr;
    text_ = text ? text : L"";
    goToStart();
    error_ = text ? LEX_OK : LEX_ERROR;
}

bool Lexer::restart() {
    if (hasText_) goToStart();
    return hasText_;
}

void Lexer::goToStart() {
    position_ = start_ = 0;
    hasToken_ = pushedBack_ = false;
}

/// Tests for the end before it skips blanks, on purpose: blanks at the end are an error for
/// callers that expect the end.
Token Lexer::nextToken() {
    if (std::exchange(pushedBack_, false)) return token_;
    hasToken_ = true;
    start_ = position_;
    token_ = Token();
    if (!hasText_) {
        error_ = LEX_ERROR;
    } else if (position_ == text_.size()) {
        error_ = LEX_END;
    } else {
        skip();
        error_ = recognise() ? LEX_OK : LEX_ERROR;
    }
    return token_;
}

/// The order matters: commands are tried before names, which may begin like one, "!=" before
/// "!", "&&" before "&".
bool Lexer::recognise() {
    return checkNum() || checkSigns() || checkCommand() || checkVariable() || checkField() ||
           checkStringValue() || checkOpRel() || checkOpBool() || checkOp() || checkParentesi();
}

std::size_t Lexer::tokenPosition() const {
    const std::size_t first = text_.find_first_not_of(L' ', start_);
    return first == text_.npos ? start_ : first;
}

void Lexer::skip() {
    while (current() == L' ') ++position_;
}

void Lexer::set(int type, long long number, std::size_t length) {
    token_.setType(type);
    token_.setNumericValue(number);
    position_ += length;
}

void Lexer::setText(int type, std::size_t from, std::size_t to) {
    token_.setStringValue(text_.data() + from, static_cast<unsigned>(to - from));
    token_.setType(type);
}

/// Reads digits, digits "." digits, or "." digits. The fraction is dropped.
bool Lexer::checkNum() {
    std::size_t end = position_;
    long long number = 0;
    for (; isDigit(text_[end]); ++end) {
        const int digit = text_[end] - L'0';
        if (wide_ && number > (LLONG_MAX - digit) / 10) return false;
        number = number * 10 + digit;
        if (!wide_) number = std::min<long long>(number, INT_MAX);
    }
    if (text_[end] == L'.') {
        ++end;
        if (!isDigit(text_[end])) return false;
        while (isDigit(text_[end])) ++end;
    }
    const std::size_t length = end - position_;
    if (length == 0 || length > kMaxNumber) return false;
    set(TOKEN_NUMBER, number, length);
    return true;
}

bool Lexer::checkSpellings(int type, const Spelling* first, const Spelling* last) {
    const std::wstring_view rest = std::wstring_view(text_).substr(position_);
    for (; first != last; ++first) {
        if (!rest.starts_with(first->text)) continue;
        set(type, first->code, first->text.size());
        return true;
    }
    return false;
}

bool Lexer::checkSigns() {
    static constexpr Spelling signs[] = {
        {L".", SIGN_POINT}, {L",", SIGN_COMMA}, {L";", SIGN_SEMICOLON}};
    return checkSpellings(TOKEN_SIGN, std::begin(signs), std::end(signs));
}

/// Finds the first registered name that the text begins with. Anything may follow it, on
/// purpose: while "path" is registered, "pathid" is the command "path" and the variable "id".
bool Lexer::checkCommand() {
    const std::wstring_view rest = std::wstring_view(text_).substr(position_);
    for (std::size_t i = 0; i < cmdTokenList.size(); ++i) {
        const std::wstring_view name = cmdTokenList[i].name();
        if (!rest.starts_with(name)) continue;
        set(TOKEN_COMMAND, static_cast<long long>(i), name.size());
        return true;
    }
    return false;
}

/// The end of the identifier that starts there; `from` when there is none.
std::size_t Lexer::identifierEnd(std::size_t from) const {
    if (!isLetter(text_[from])) return from;
    while (isLetter(text_[from]) || isDigit(text_[from])) ++from;
    return from;
}

bool Lexer::checkVariable() {
    const std::size_t end = identifierEnd(position_);
    if (end == position_ || end - position_ > kMaxVariable) return false;
    setText(TOKEN_VARIABLE, position_, end);
    position_ = end;
    return true;
}

bool Lexer::checkField() {
    if (current() != L'[') return false;
    const std::size_t name = position_ + 1;
    const std::size_t end = identifierEnd(name);
    if (end == name || end - name > kMaxText || text_[end] != L']') return false;
    setText(TOKEN_FIELD, name, end);
    position_ = end + 1;
    return true;
}

bool Lexer::checkStringValue() {
    if (current() != L'"') return false;
    const std::size_t content = position_ + 1;
    const std::size_t end = text_.find(L'"', content);
    if (end == text_.npos || end - content > kMaxText) return false;
    setText(TOKEN_STRING, content, end);
    position_ = end + 1;
    return true;
}

bool Lexer::checkOpRel() {
    static constexpr Spelling relations[] = {
        {L"==", COMPARE_EQUAL},  {L">=", COMPARE_GREATER_EQUAL}, {L"<=", COMPARE_LESS_EQUAL},
        {L">", COMPARE_GREATER}, {L"<", COMPARE_LESS},           {L"!=", COMPARE_NOT_EQUAL}};
    return checkSpellings(TOKEN_OPREL, std::begin(relations), std::end(relations));
}

bool Lexer::checkOpBool() {
    static constexpr Spelling booleans[] = {{L"&&", BOOL_AND}, {L"||", BOOL_OR}, {L"!", BOOL_NOT}};
    return checkSpellings(TOKEN_OPBOOL, std::begin(booleans), std::end(booleans));
}

bool Lexer::checkOp() {
    static constexpr Spelling operators[] = {{L"+", OP_ADD},      {L"-", OP_SUBTRACT},
                                             {L"*", OP_MULTIPLY}, {L"/", OP_DIVIDE},
                                             {L"&", OP_BIT_AND},  {L"|", OP_BIT_OR}};
    return checkSpellings(TOKEN_OP, std::begin(operators), std::end(operators));
}

bool Lexer::checkParentesi() {
    static constexpr Spelling parentheses[] = {{L"(", PAREN_OPEN}, {L")", PAREN_CLOSE}};
    return checkSpellings(TOKEN_PARENTESI, std::begin(parentheses), std::end(parentheses));
}

}  // namespace fscanner

#pragma once

#include <string>
#include <string_view>

namespace fscanner {

enum TokenType : signed char {
    TOKEN_END = -1,
    TOKEN_NUMBER = 0,
    TOKEN_STRING = 1,
    TOKEN_FIELD = 2,
    TOKEN_VARIABLE = 3,
    TOKEN_OP = 4,
    TOKEN_PARENTESI = 5,
    TOKEN_OPBOOL = 6,
    TOKEN_OPREL = 7,
    TOKEN_COMMAND = 8,
    TOKEN_SIGN = 9,
};

/// The codes that tokens carry as their numeric value. Those of `TOKEN_OPREL`
/// are `CompareOperator`'s.
enum OperatorCode : unsigned char {
    OP_ADD = 0,
    OP_PLUS = 1,  ///< a sign; written by the parser only
    OP_SUBTRACT = 2,
    OP_MINUS = 3,  ///< a sign; written by the parser only
    OP_MULTIPLY = 4,
    OP_DIVIDE = 5,
    OP_BIT_AND = 6,
    OP_BIT_OR = 7,
};
enum BooleanCode : unsigned char { BOOL_AND = 0, BOOL_OR = 1, BOOL_NOT = 2 };
enum ParenthesisCode : unsigned char { PAREN_OPEN = 0, PAREN_CLOSE = 1 };
enum SignCode : unsigned char { SIGN_POINT = 0, SIGN_COMMA = 1, SIGN_SEMICOLON = 2 };

/// The token type of a value type; `TOKEN_END` for anything else.
signed char toTokenType(char valueType);

/// One word of a criteria.
class Token {
public:
    int getType() const { return type_; }
    void setType(int type) { type_ = static_cast<signed char>(type); }
    long long getNumericValue() const { return number_; }
    void setNumericValue(long long number) { number_ = number; }
    /// The text of strings, fields and variables. A command's node in a tree has the command's
    /// name here. Empty for all other tokens.
    const wchar_t* getStringValue() const { return text_.c_str(); }
    std::wstring_view text() const { return text_; }
    void setStringValue(const wchar_t* text);
    void setStringValue(const wchar_t* text, unsigned length) { text_.assign(text, length); }
    /// For a command's node: whether its value had an influence when it was read.
    bool getExecute() const { return execute_; }
    void setExecute(bool execute) { execute_ = execute; }

    bool is(int type, long long code) const { return type_ == type && number_ == code; }

private:
    std::wstring text_;
    signed char type_ = TOKEN_END;
    bool execute_ = true;
    long long number_ = 0;
};

enum LexerError { LEX_OK = 0, LEX_END = 1, LEX_ERROR = 2 };

/// Cuts a criteria into tokens, one at a time, with one token of push-back.
/// Letters and digits are ASCII's; the only blank is U+0020. Prints nothing.
class Lexer {
public:
    static constexpr std::size_t kMaxNumber = 255;
    static constexpr std::size_t kMaxVariable = 32767;
    static constexpr std::size_t kMaxText = 131071;

    /// Takes a copy and goes to its start. Null: no text, and an error.
    void setExpression(const wchar_t* text);
    /// Allows numbers up to 9223372036854775807; a larger one is an error. Without this call,
    /// numbers above 2147483647 become 2147483647.
    void readWideNumbers() { wide_ = true; }
    /// Goes back to the start; false without a text.
    bool restart();
    /// The next token; `TOKEN_END` with a code in `getLastError` when there is none.
    /// A blank before the end is an error, not the end.
    Token nextToken();
    /// Makes the last token the next one again.
    void back() { pushedBack_ = hasToken_; }
    int getLastError() const { return error_; }

    /// Index of the last token's first character, behind the blanks before it. If only blanks
    /// are left, index of the first of them.
    std::size_t tokenPosition() const;
    /// The whole text.
    std::wstring_view text() const { return text_; }

    static bool isDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
    static bool isLetter(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); }

private:
    wchar_t current() const { return text_[position_]; }
    void goToStart();
    void skip();
    bool recognise();
    bool checkNum();
    bool checkSigns();
    bool checkCommand();
    bool checkVariable();
    bool checkField();
    bool checkStringValue();
    bool checkOpRel();
    bool checkOpBool();
    bool checkOp();
    bool checkParentesi();

    struct Spelling;
    bool checkSpellings(int type, const Spelling* first, const Spelling* last);
    std::size_t identifierEnd(std::size_t from) const;
    void set(int type, long long number, std::size_t length);
    void setText(int type, std::size_t from, std::size_t to);

    std::wstring text_;
    bool hasText_ = false;
    bool wide_ = false;
    std::size_t position_ = 0;
    std::size_t start_ = 0;  // of the last token and the blanks before it
    bool hasToken_ = false;
    bool pushedBack_ = false;
    int error_ = LEX_OK;
    Token token_;
};

}  // namespace fscanner

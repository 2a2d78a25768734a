#include "fscanner/expr/compile_error.h"

#include <algorithm>
#include <cstdio>

#include "fscanner/common/utf8.h"

namespace fscanner {

namespace {

std::string quoted(Operator op) {
    return "'" + toMultibyte(spelling(op)) + "'";
}

std::string characterText(wchar_t c) {
    if (c > L' ' && c < 0x7F) return std::string("'") + static_cast<char>(c) + "'";
    char code[16];
    std::snprintf(code, sizeof code, "U+%04lX", static_cast<unsigned long>(c));
    return code;
}

std::string unreadableNumber(std::wstring_view rest) {
    const auto isDigit = [](wchar_t c) { return Lexer::isDigit(c); };
    const auto digits = std::find_if_not(rest.begin(), rest.end(), isDigit) - rest.begin();
    const std::size_t zeros = std::min(rest.find_first_not_of(L'0'), rest.size());
    if (static_cast<std::size_t>(digits) >= zeros + 19 && digits < 256)
        return "a number is 9223372036854775807 at most";
    return "a number ends in a digit and is shorter than 256 characters";
}

/// Why no token can be read at the start of `rest`, which is not empty.
std::string unreadableText(std::wstring_view rest) {
    const wchar_t first = rest.front();
    if (first == L' ') return "blank at the end";
    if (first == L'=') return "'=' is no operator: equality is '=='";
    if (first == L'[') return "a field is a name of letters and digits in brackets: [NAME]";
    if (first == L'"') {
        return rest.find(L'"', 1) == rest.npos ? "text without a closing '\"'" : "text too long";
    }
    if (Lexer::isLetter(first)) return "name too long";
    if (Lexer::isDigit(first)) return unreadableNumber(rest);
    return "unexpected character " + characterText(first);
}

}  // namespace

CompileError syntaxError(const Lexer& lexer, std::string_view expected) {
    const std::size_t position = lexer.tokenPosition();
    if (lexer.text().empty()) return {"empty criteria", position};
    if (lexer.getLastError() != LEX_ERROR) return {std::string(expected), position};
    return {unreadableText(lexer.text().substr(position)), position};
}

std::string unknownNameText(const Token& token) {
    const std::string name = toMultibyte(token.text());
    if (token.getType() == TOKEN_FIELD) return "no field [" + name + "]";
    return "no variable " + name + ": a text is written between double quotes";
}

std::string operandTypesText(Operator op, Fault fault) {
    if (fault == Fault::notOnTexts) return quoted(op) + " does not work on texts";
    if (op == Operator::add) return "'+' joins two numbers or two texts, not one of each";
    if (isRelation(op)) return quoted(op) + " compares a number with a text";
    return quoted(op) + " needs numbers, not texts";
}

std::string argumentTypeText(const CmdToken& command, unsigned argument) {
    const char* const needed = command.argumentType(argument) == STRING ? "text" : "number";
    return "argument " + std::to_string(argument + 1) + " of " + toMultibyte(command.name()) +
           " has to be a " + needed;
}

const char* recordErrorText(Fault fault) {
    switch (fault) {
        case Fault::none:
            return "";
        case Fault::zeroDivisor:
            return "division by zero";
        case Fault::twoPatterns:
            return "two patterns cannot be compared";
        case Fault::textTooLong:
            return "text too long";
        case Fault::noRoom:
            return "joined text too long";
        case Fault::commandGone:
            return "command not registered any more";
        case Fault::commandFailed:
            return "command failed";
        default:
            return "not the fields and variables that it was compiled for";
    }
}

}  // namespace fscanner

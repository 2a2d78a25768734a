#pragma once

#include <string>
#include <string_view>

#include "fscanner/expr/command.h"
#include "fscanner/expr/lexer.h"
#include "fscanner/expr/operators.h"

/// The texts for a person whose criteria does not compile, or cannot be evaluated.
namespace fscanner {

struct CompileError {
    std::string text;          ///< one line, empty when there is no error
    std::size_t position = 0;  ///< index into the criteria, in characters
};

/// The error at the lexer's last token: `expected`, or a text about its characters if they are
/// not a token at all.
CompileError syntaxError(const Lexer& lexer, std::string_view expected);
std::string unknownNameText(const Token& token);
/// Why the operands of an operator do not fit it.
std::string operandTypesText(Operator op, Fault fault);
/// Why an argument (counted from 0) does not fit a command.
std::string argumentTypeText(const CmdToken& command, unsigned argument);

/// Why a criteria has no value for a record.
const char* recordErrorText(Fault fault);

}  // namespace fscanner

#include "fscanner/expr/command.h"

#include <cwchar>

namespace fscanner {

thread_local std::vector<CmdToken> cmdTokenList;

namespace {

bool nameFits(const wchar_t* name) {
    // An empty name would match everywhere and consume nothing: the lexer would not advance.
    return name && *name && std::wcslen(name) <= CmdToken::kMaxName;
}

bool beginsWith(const CmdToken& command, const wchar_t* name, unsigned count, const char* types) {
    if (std::wcscmp(command.name(), name) != 0 || command.argumentCount() < count) return false;
    for (unsigned i = 0; i < count; ++i) {
        if (command.argumentType(i) != types[i]) return false;
    }
    return true;
}

bool isTaken(const wchar_t* name, unsigned count, const char* types) {
    if (!name) return false;
    for (const CmdToken& command : cmdTokenList) {
        if (beginsWith(command, name, count, types)) return true;
    }
    return false;
}

}  // namespace

BinaryCmd::~BinaryCmd() = default;
UnaryCmd::~UnaryCmd() = default;

CmdToken::CmdToken(const wchar_t* name, char resultType, char firstType, char secondType,
                   BinaryCmd* command)
    : resultType_(resultType), argumentTypes_{firstType, secondType}, binary_(command) {
    setName(name);
}

CmdToken::CmdToken(const wchar_t* name, char resultType, char argumentType, UnaryCmd* command)
    : resultType_(resultType), argumentTypes_{argumentType, NUMERIC}, unary_(command) {
    setName(name);
}

void CmdToken::setName(const wchar_t* name) {
    if (name) std::wcsncpy(name_.data(), name, kMaxName);
}

int CmdToken::execute(const ExpValue& first, const ExpValue& second, ExpValue& result) const {
    return binary_ ? binary_->execute(first, second, result) : unary_->execute(first, result);
}

const CmdToken* commandAt(long long index) {
    const auto position = static_cast<unsigned long long>(index);
    return position < cmdTokenList.size() ? &cmdTokenList[position] : nullptr;
}

bool addCmdToken(const wchar_t* name, char resultType, char firstType, char secondType,
                 BinaryCmd* command) {
    if (!command || !nameFits(name)) return false;
    if (!checkType(resultType) || !checkType(firstType) || !checkType(secondType)) return false;
    if (findCmdToken(name, firstType, secondType)) return false;
    cmdTokenList.emplace_back(name, resultType, firstType, secondType, command);
    return true;
}

bool addCmdToken(const wchar_t* name, char resultType, char argumentType, UnaryCmd* command) {
    if (!command || !nameFits(name)) return false;
    if (!checkType(resultType) || !checkType(argumentType)) return false;
    if (findCmdToken(name, argumentType)) return false;
    cmdTokenList.emplace_back(name, resultType, argumentType, command);
    return true;
}

bool findCmdToken(const wchar_t* name, char firstType, char secondType) {
    const char types[] = {firstType, secondType};
    return isTaken(name, 2, types);
}

bool findCmdToken(const wchar_t* name, char argumentType) {
    return isTaken(name, 1, &argumentType);
}

void clearCommands() {
    cmdTokenList.clear();
}

// ---- Values -----------------------------------------------------------------

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

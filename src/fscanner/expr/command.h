#pragma once

#include <array>
#include <vector>

#include "fscanner/expr/exp_value.h"

namespace fscanner {

/// A command of two arguments: name(first, second) in a criteria.
class BinaryCmd {
public:
    /// Sets the result's type, the declared one, and its value. 0 on success.
    virtual int execute(const ExpValue& first, const ExpValue& second, ExpValue& result) = 0;
    // Last in slot order.
    virtual ~BinaryCmd();
};

/// A command of one argument.
class UnaryCmd {
public:
    virtual int execute(const ExpValue& argument, ExpValue& result) = 0;
    virtual ~UnaryCmd();
};

/// One registered command: name, signature, and the object that executes it,
/// which belongs to whoever registered it.
class CmdToken {
public:
    /// A longer name is cut.
    static constexpr unsigned MAX_NAME = 32;

    CmdToken(const wchar_t* name, char resultType, char firstType, char secondType,
             BinaryCmd* command);
    CmdToken(const wchar_t* name, char resultType, char argumentType, UnaryCmd* command);

    const wchar_t* name() const { return name_.data(); }
    unsigned argumentCount() const { return binary_ ? 2 : 1; }
    char resultType() const { return resultType_; }
    /// The type of the i-th argument, `i` below `argumentCount()`.
    char argumentType(unsigned i) const { return argumentTypes_[i]; }
    /// Runs the command; the second argument is ignored where there is only one.
    int execute(const ExpValue& first, const ExpValue& second, ExpValue& result) const;

private:
    void setName(const wchar_t* name);

    std::array<wchar_t, MAX_NAME + 1> name_{};
    char resultType_;
    std::array<char, 2> argumentTypes_;
    BinaryCmd* binary_ = nullptr;
    UnaryCmd* unary_ = nullptr;
};

/// The commands of the thread, in order of registration. Every new evaluator empties it.
extern thread_local std::vector<CmdToken> cmdTokenList;

/// The command at a position that a compiled criteria remembers; null when the
/// list has been emptied since.
const CmdToken* commandAt(long long index);

/// Append a command to the list. False for a null command, a null or empty name,
/// one longer than 32 characters, an invalid type, or a signature that is taken.
bool addCmdToken(const wchar_t* name, char resultType, char firstType, char secondType,
                 BinaryCmd* command);
bool addCmdToken(const wchar_t* name, char resultType, char argumentType, UnaryCmd* command);

/// Whether a command has this name and begins with these argument types.
bool findCmdToken(const wchar_t* name, char firstType, char secondType);
bool findCmdToken(const wchar_t* name, char argumentType);

/// Empties the list. While a name is in it, identifiers that begin with it are
/// read as the command: "pathid" as "path" and the variable "id".
void clearCommands();

/// Empties the list at the end of a scope: for whoever registers commands.
class CommandListGuard {
public:
    CommandListGuard() = default;
    CommandListGuard(const CommandListGuard&) = delete;
    CommandListGuard& operator=(const CommandListGuard&) = delete;
    ~CommandListGuard() { clearCommands(); }
};

/// Puts another list in the place of the thread's one until the end of a scope, an
/// empty one or `other`: for whoever may be called in the middle of somebody else's
/// query.
class CommandListShelter {
public:
    CommandListShelter() : CommandListShelter(own_) {}
    explicit CommandListShelter(std::vector<CmdToken>& other) : other_(other) {
        other_.swap(cmdTokenList);
    }
    CommandListShelter(const CommandListShelter&) = delete;
    CommandListShelter& operator=(const CommandListShelter&) = delete;
    ~CommandListShelter() { other_.swap(cmdTokenList); }

private:
    std::vector<CmdToken> own_;
    std::vector<CmdToken>& other_;
};

}  // namespace fscanner

#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "fscanner/common/fields.h"

namespace fscanner {

/// The types of the criteria language's values: a signed 64-bit number, a wide text.
enum ValueType : char { NUMERIC = 0, STRING = 1 };

/// Whether `t` is one of the two types.
constexpr bool checkType(char t) {
    return static_cast<unsigned char>(t) < 2;
}

/// A value that enters or leaves the language: the result of a check, the arguments and
/// the result of a command, a hash key. Owns its texts. An evaluation itself uses `Value`,
/// whose texts are views.
class ExpValue {
public:
    /// The longest text, in characters. A longer one is an error of the evaluation.
    static constexpr std::size_t kMaxText = 0x1FFFF;

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

    /// States how many literals, and how many fields or variables, it was computed from.
    void setCounts(int constants, int fields) {
        constants_ = constants;
        fields_ = fields;
    }

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    int getConstantCount() const { return constants_; }
    int getFieldCount() const { return fields_; }

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

/// A command of two arguments: name(first, second) in a criteria.
class BinaryCmd {
public:
    /// Sets the result's type, the declared one, and its value. 0 on success.
    virtual int execute(const ExpValue& first, const ExpValue& second, ExpValue& result) = 0;
    // Declared last: the order of the virtual functions is fixed.
    virtual ~BinaryCmd();
};

/// A command of one argument.
class UnaryCmd {
public:
    virtual int execute(const ExpValue& argument, ExpValue& result) = 0;
    virtual ~UnaryCmd();
};

/// One registered command: name, signature, and the object that executes it. The caller that
/// registered the object owns it.
class CmdToken {
public:
    /// A longer name is cut.
    static constexpr unsigned kMaxName = 32;

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

    std::array<wchar_t, kMaxName + 1> name_{};
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

/// Empties the list. While a name is in it, identifiers that begin with the name are read as
/// the command and a rest: "pathid" as the command "path" and the variable "id".
void clearCommands();

/// Replaces the thread's list by an empty one, or by `other`, until the end of a scope. For code
/// that may be called in the middle of another query. The destructor puts the old list
/// back.
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

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Empties the list at the end of a scope. For code that registers commands.
class CommandListGuard {
public:
    CommandListGuard() = default;
    CommandListGuard(const CommandListGuard&) = delete;
    CommandListGuard& operator=(const CommandListGuard&) = delete;
    ~CommandListGuard() { clearCommands(); }
};

}  // namespace fscanner

#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/common/pattern.h"
#include "fscanner/expr/command.h"
#include "fscanner/expr/operators.h"
#include "fscanner/expr/tree.h"

namespace fscanner {

/// The compiled form of a tree: instructions for a stack of values.
///
///     [FILENAME]=="*.h" && [SIZE]>1000
///
///     read     slot 0 (FILENAME)
///     match    literal 0 ("*.h")      the pattern is prepared, case by case
///     skipIf0  5                      leaves the 0 on the stack
///     read     slot 1 (SIZE)
///     push     1000
///     apply    >
///     apply    &&
///
/// Running it allocates memory only for concatenations. Names are resolved when a run gets another
/// list, or one that was changed; in other runs a slot is a pointer.
///
/// Owns its literals and buffers and does not need the tree any more. One thread
/// at a time.
class Program {
public:
    Program() = default;
    explicit Program(const Tree& tree);

    /// Evaluates over these lists, which may be null. A fault is also written to the debug log.
    /// The text of `out` is valid until the next run or a change of the fields.
    Fault run(const Fields* fields, const Fields* variables, bool caseSensitive, Value& out);

    /// The fields that it reads, in order of appearance.
    std::vector<std::wstring> fieldNames() const;
    bool readsField(std::wstring_view name) const;
    bool usesCommands() const { return !calls_.empty(); }

private:
    enum class Action : unsigned char {
        push,
        read,
        match,
        mismatch,
        apply,
        call,
        skipIf0,
        skipIf1
    };
    struct Instruction {
        Action action;
        Operator op;          // of `apply`
        std::uint32_t index;  // of the constant, slot, literal, buffer or call; where to skip to
    };
    /// A field or variable, and its place in the lists of the last run.
    struct Slot {
        std::wstring name;
        bool isVariable;
        const Field* field = nullptr;
    };
    /// A text literal that something is compared with, prepared for both cases.
    struct Literal {
        std::wstring text;
        bool isPattern;
        CompiledPattern exact;
        CompiledPattern folded;
    };
    /// A command's call with the room for its values.
    struct Call {
        long long command;
        std::wstring name;
        std::array<ExpValue, 2> arguments;
        ExpValue result;
    };
    class Builder;

    bool isBound(const Fields* fields, const Fields* variables) const;
    void bind(const Fields* fields, const Fields* variables);
    Fault execute(const EvaluationRules& rules, Value& out);
    Fault applyOnStack(Operator op, const EvaluationRules& rules, std::uint32_t buffer,
                       Value*& top);
    static Fault compareWithLiteral(const Literal& literal, bool caseSensitive, bool wanted,
                                    Value& value);
    static Fault call(Call& call, const Value* arguments, Value& out);

    std::vector<Instruction> instructions_;
    std::deque<std::wstring> texts_;  // what the constants point to
    std::vector<Value> constants_;
    std::vector<Slot> slots_;
    std::vector<Literal> literals_;
    std::vector<std::wstring> joined_;  // the first is for operators that join nothing
    std::vector<std::unique_ptr<Call>> calls_;
    std::vector<Value> stack_;
    std::uint64_t fieldsRevision_ = ~std::uint64_t{0};
    std::uint64_t variablesRevision_ = ~std::uint64_t{0};
    std::uint64_t renames_ = 0;
};

}  // namespace fscanner

#include "fscanner/expr/program.h"

#include <algorithm>

#include "fscanner/common/debug.h"

namespace fscanner {

/// Writes a tree's instructions. It walks along the left spines, which can be as long as the
/// criteria, and recurses to the right, where the depth of nesting is limited.
class Program::Builder {
public:
    explicit Builder(Program& program) : program_(program) {}

    void build(const TreeNode* root) {
        program_.joined_.emplace_back();
        emit(root);
        program_.stack_.resize(highest_ + 1);
    }

private:
    static constexpr std::uint32_t kNoBuffer = 0;

    void emit(const TreeNode* node) {
        std::vector<const TreeNode*> spine;
        for (; node && !Tree::isLeaf(node); node = node->left.get()) spine.push_back(node);
        leaf(node);
        std::uint32_t buffer = kNoBuffer;
        for (auto it = spine.rbegin(); it != spine.rend(); ++it) buffer = inner(**it, buffer);
    }

    void leaf(const TreeNode* node) {
        const int type = node ? node->data.getType() : TOKEN_END;
        if (type == TOKEN_FIELD || type == TOKEN_VARIABLE) {
            add(Action::read, slot(node->data.text(), type == TOKEN_VARIABLE));
        } else {
            add(Action::push, constant(node ? node->data : Token()));
        }
        highest_ = std::max(highest_, ++height_);
    }

    /// Writes the instructions behind the left operand. A chain of "+" joins its texts in one
    /// buffer: takes that of the left operand, and returns that of the node.
    std::uint32_t inner(const TreeNode& node, std::uint32_t buffer) {
        const TreeNode* right = node.right.get();
        const auto op = operatorOf(node.data);
        if (op == Operator::add) {
            if (buffer == kNoBuffer) buffer = newBuffer();
            binary(*op, right, buffer);
            return buffer;
        }
        if (!op) {
            call(node);
        } else if (isUnary(*op)) {
            add(Action::apply, kNoBuffer, *op);
        } else if (isEquality(*op) && right && right->data.getType() == TOKEN_STRING) {
            add(*op == Operator::equal ? Action::match : Action::mismatch, literal(right->data));
        } else if (*op == Operator::logicalAnd || *op == Operator::logicalOr) {
            shortCircuit(*op, right);
        } else {
            binary(*op, right, kNoBuffer);
        }
        return kNoBuffer;
    }

    void shortCircuit(Operator op, const TreeNode* right) {
        const std::size_t skip = program_.instructions_.size();
        add(op == Operator::logicalAnd ? Action::skipIf0 : Action::skipIf1, 0);
        binary(op, right, kNoBuffer);
        program_.instructions_[skip].index =
            static_cast<std::uint32_t>(program_.instructions_.size());
    }

    static bool isEquality(Operator op) {
        return op == Operator::equal || op == Operator::notEqual;
    }

    void binary(Operator op, const TreeNode* right, std::uint32_t index) {
        emit(right);
        add(Action::apply, index, op);
        --height_;
    }

    /// A command with one argument has an empty node for the second.
    void call(const TreeNode& node) {
        auto call = std::make_unique<Call>();
        call->command = node.data.getNumericValue();
        call->name = node.data.text();
        nameArgument(node.left.get(), call->arguments[0]);
        nameArgument(node.right.get(), call->arguments[1]);
        emit(node.right.get());
        add(Action::call, static_cast<std::uint32_t>(program_.calls_.size()));
        --height_;
        program_.calls_.push_back(std::move(call));
    }

    static void nameArgument(const TreeNode* node, ExpValue& argument) {
        const int type = node ? node->data.getType() : TOKEN_END;
        if (type == TOKEN_FIELD || type == TOKEN_VARIABLE) {
            argument.setNValueString(node->data.text());
        }
    }

    std::uint32_t constant(const Token& token) {
        Value value;
        if (token.getType() == TOKEN_STRING) {
            value = {STRING, 0, program_.texts_.emplace_back(token.text())};
        } else if (token.getType() == TOKEN_NUMBER) {
            value.number = token.getNumericValue();
        }
        program_.constants_.push_back(value);
        return static_cast<std::uint32_t>(program_.constants_.size() - 1);
    }

    std::uint32_t slot(std::wstring_view name, bool isVariable) {
        auto& slots = program_.slots_;
        const auto same = std::find_if(slots.begin(), slots.end(), [&](const Slot& s) {
            return s.isVariable == isVariable && s.name == name;
        });
        const auto index = static_cast<std::uint32_t>(same - slots.begin());
        if (same == slots.end()) slots.push_back({std::wstring(name), isVariable});
        return index;
    }

    std::uint32_t literal(const Token& token) {
        const std::wstring text(token.text());
        program_.literals_.push_back(
            {text, hasWildcard(text), CompiledPattern(text, true), CompiledPattern(text, false)});
        return static_cast<std::uint32_t>(program_.literals_.size() - 1);
    }

    std::uint32_t newBuffer() {
        program_.joined_.emplace_back();
        return static_cast<std::uint32_t>(program_.joined_.size() - 1);
    }

    void add(Action action, std::uint32_t index, Operator op = Operator::equal) {
        program_.instructions_.push_back({action, op, index});
    }

    Program& program_;
    std::size_t height_ = 0;
    std::size_t highest_ = 0;
};

namespace {

/// Some faults have no line in the log.
void report(Fault fault, const Value& left, const Value& right) {
    switch (fault) {
        case Fault::unknownName:
            return debug("SyntaxTree::l_value - variable specified not found!\n");
        case Fault::textTooLong:
            return debug("SyntaxTree::l_value - string space not available\n");
        case Fault::noRoom:
            return debug("SyntaxTree::resolve - string space not available for concatenation\n");
        case Fault::twoPatterns:
            return debug("SyntaxTree::resolve - can't compare two wildcard string [%ls][%ls]!\n",
                         left.text.data(), right.text.data());
        case Fault::zeroDivisor:
            return debug("SyntaxTree::resolve - division by zero!\n");
        default:
            return;
    }
}

Fault reportCall(Fault fault, const std::wstring& name) {
    if (fault == Fault::commandGone) {
        debug("SyntaxTree::resolve - command[%ls] not registered any more\n", name.c_str());
    } else if (fault == Fault::argumentTypes) {
        debug("SyntaxTree::resolve - command[%ls], arguments type mismatch\n", name.c_str());
    } else {
        debug("SyntaxAnalyzer::resolve - command[%ls]: execute failed!\n", name.c_str());
    }
    return fault;
}

void fill(ExpValue& argument, const Value& value) {
    argument.setType(value.type);
    argument.setNumericValue(value.number);
    argument.setStringValue(value.text);
}

}  // namespace

Program::Program(const Tree& tree) {
    Builder(*this).build(tree.getRoot());
}

Fault Program::run(const Fields* fields, const Fields* variables, bool caseSensitive, Value& out) {
    if (!isBound(fields, variables)) bind(fields, variables);
    return execute({.caseSensitive = caseSensitive}, out);
}

bool Program::isBound(const Fields* fields, const Fields* variables) const {
    return fieldsRevision_ == (fields ? fields->revision() : 0) &&
           variablesRevision_ == (variables ? variables->revision() : 0) &&
           renames_ == Field::renames();
}

void Program::bind(const Fields* fields, const Fields* variables) {
    for (Slot& slot : slots_) {
        const Fields* list = slot.isVariable ? variables : fields;
        slot.field = list ? list->name(std::wstring_view(slot.name)) : nullptr;
    }
    fieldsRevision_ = fields ? fields->revision() : 0;
    variablesRevision_ = variables ? variables->revision() : 0;
    renames_ = Field::renames();
}

Fault Program::execute(const EvaluationRules& rules, Value& out) {
    Value* top = stack_.data();  // the lowest is never used
    Fault fault = Fault::none;
    const auto count = static_cast<std::uint32_t>(instructions_.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto [action, op, index] = instructions_[i];
        switch (action) {
            case Action::push:
                *++top = constants_[index];
                break;
            case Action::read:
                fault = readField(slots_[index].field, rules.pass, *++top);
                if (fault != Fault::none) report(fault, *top, *top);
                break;
            case Action::match:
            case Action::mismatch:
                fault = compareWithLiteral(literals_[index], rules.caseSensitive,
                                           action == Action::match, *top);
                break;
            case Action::skipIf0:
            case Action::skipIf1:
                // Only exactly 1 decides an "||", on purpose; all other numbers do not.
                if (top->number != (action == Action::skipIf1)) break;
                *top = {NUMERIC, top->number, L""};
                i = index - 1;
                break;
            case Action::apply:
                fault = applyOnStack(op, rules, index, top);
                break;
            case Action::call:
                --top;
                fault = call(*calls_[index], top, *top);
                break;
        }
        if (fault != Fault::none) return fault;
    }
    out = *top;
    return Fault::none;
}

Fault Program::applyOnStack(Operator op, const EvaluationRules& rules, std::uint32_t buffer,
                            Value*& top) {
    static const Value nothing;
    const Value& right = isUnary(op) ? nothing : *top--;
    const Fault fault = apply(op, rules, *top, right, joined_[buffer], *top);
    if (fault != Fault::none) report(fault, *top, right);
    return fault;
}

/// The same result as `textsEqual`; the literal was examined when the program was made.
Fault Program::compareWithLiteral(const Literal& literal, bool caseSensitive, bool wanted,
                                  Value& value) {
    if (value.type != STRING) return Fault::operandTypes;
    bool equal = false;
    if (!hasWildcard(value.text)) {
        equal = (caseSensitive ? literal.exact : literal.folded).matches(value.text);
    } else if (literal.isPattern) {
        report(Fault::twoPatterns, value, {STRING, 0, literal.text});
        return Fault::twoPatterns;
    } else {
        equal = wildvccmp(value.text.data(), literal.text.c_str(), caseSensitive) == 1;
    }
    value = {NUMERIC, equal == wanted, L""};
    return Fault::none;
}

Fault Program::call(Call& call, const Value* arguments, Value& out) {
    const CmdToken* registered = commandAt(call.command);
    if (!registered) return reportCall(Fault::commandGone, call.name);
    const CmdToken command = *registered;  // a copy, as the command may change the list
    for (unsigned i = 0; i < command.argumentCount(); ++i) {
        if (arguments[i].type != command.argumentType(i)) {
            return reportCall(Fault::argumentTypes, call.name);
        }
        fill(call.arguments[i], arguments[i]);
    }
    call.result = ExpValue();
    if (command.execute(call.arguments[0], call.arguments[1], call.result) != 0) {
        return reportCall(Fault::commandFailed, call.name);
    }
    out = {call.result.getType(), call.result.getNumericValue(), call.result.text()};
    return Fault::none;
}

bool Program::readsField(std::wstring_view name) const {
    return std::any_of(slots_.begin(), slots_.end(),
                       [&](const Slot& slot) { return !slot.isVariable && slot.name == name; });
}

std::vector<std::wstring> Program::fieldNames() const {
    std::vector<std::wstring> names;
    for (const Slot& slot : slots_) {
        if (!slot.isVariable) names.push_back(slot.name);
    }
    return names;
}

}  // namespace fscanner

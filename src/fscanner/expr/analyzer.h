#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "fscanner/common/fields.h"
#include "fscanner/expr/command.h"
#include "fscanner/expr/compile_error.h"
#include "fscanner/expr/index_key.h"
#include "fscanner/expr/lexer.h"
#include "fscanner/expr/program.h"
#include "fscanner/expr/tree.h"

namespace fscanner {

/// How a criteria is read.
enum class CriteriaRules {
    plain,   ///< the rules of the language for all its users
    search,  ///< the rules of a search, by which a scan and the cache find the same files
};

/// Reads a criteria by recursive descent and evaluates it at the same time. Keeps the tree and
/// its compiled form, which later evaluations run.
///
///     bExpression = bTerm { "||" bTerm }
///     bTerm       = relation { "&&" relation }
///     relation    = expression { ("=="|">="|"<="|">"|"<"|"!=") expression }
///     expression  = term { ("+"|"-"|"|") term }
///     term        = factor { ("*"|"/"|"&") factor }
///     factor      = operand | ("+"|"-"|"!") factor | "(" bExpression ")" | command
///
/// A compile error ends the reading, and the tree stays as far as it got. An
/// error of the evaluation (a zero divisor, two patterns) does not: the rest is
/// read without values, so that the tree serves the records to come.
///
/// The rules of a search differ in three points: numbers have 64 bits instead of 31, any number
/// but 0 is a match, and `[SHORTFILENAME]` is the empty text if the fields lack it.
///
/// One thread at a time. Every new analyzer empties the list of commands.
class SyntaxAnalyzer {
public:
    /// How deep parentheses, signs, "!" and commands' arguments may be nested.
    static constexpr unsigned kMaxDepth = 256;

    explicit SyntaxAnalyzer(CriteriaRules rules = CriteriaRules::plain);
    SyntaxAnalyzer(const SyntaxAnalyzer&) = delete;
    SyntaxAnalyzer& operator=(const SyntaxAnalyzer&) = delete;
    ~SyntaxAnalyzer() = default;

    /// Compiles and evaluates a text. 0 on success; otherwise `result` is untouched.
    int parse(const wchar_t* text, const Fields* fields, const Fields* variables, ExpValue& result,
              bool caseSensitive);
    /// Evaluates what was compiled. 0 on success; otherwise `result` is untouched.
    int parse(const Fields* fields, const Fields* variables, ExpValue& result, bool caseSensitive);

    /// The field and the constant of an equality that every match satisfies.
    bool getHashValue(ExpValue& out) const { return key_.get(out); }
    /// In a dry run no command is executed, and a zero divisor is no error.
    void setDryRun(bool on) { rules_.dryRun = on; }

    /// Whether the last text that was parsed does not compile, and why.
    bool hasCompileError() const { return !compileError_.text.empty(); }
    const CompileError& compileError() const { return compileError_; }
    /// Why the last parse of either kind found no value for its record.
    Fault evaluationFault() const { return evaluationFault_; }
    const Tree& tree() const { return tree_; }
    const Program& program() const { return program_; }

    static bool addCmdToken(const wchar_t* name, char resultType, char firstType, char secondType,
                            BinaryCmd* command);
    static bool addCmdToken(const wchar_t* name, char resultType, char argumentType,
                            UnaryCmd* command);
    static bool findCmdToken(const wchar_t* name, char firstType, char secondType);
    static bool findCmdToken(const wchar_t* name, char argumentType);

private:
    // The levels of the grammar that chain operators, loosest first.
    enum class Level { bExpression, bTerm, relation, expression, term };

    /// Counts the depth of the recursion. Without a limit, a text from outside could overflow the
    /// stack.
    class Nesting {
    public:
        explicit Nesting(SyntaxAnalyzer& analyzer) : depth_(analyzer.depth_) { ++depth_; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;
        ~Nesting() { --depth_; }

        bool isTooDeep() const { return depth_ > kMaxDepth; }

    private:
        unsigned& depth_;
    };

    bool chain(Level loosest, ParsedValue& value, bool evaluate, Tree& tree);
    bool tighter(Level level, ParsedValue& value, bool evaluate, Tree& tree);
    bool rightOperand(Level level, const ParsedValue& left, ParsedValue& right, bool evaluate,
                      Tree& tree);
    static Level levelOf(Operator op);
    static const char* levelName(Level level);
    std::optional<Token> takeOperator(Level loosest);
    bool combine(Operator op, std::size_t position, ParsedValue& left, const ParsedValue& right);
    bool expectEnd();
    void makeCondition(ParsedValue& value);

    bool factor(ParsedValue& value, bool evaluate, Tree& tree);
    static void literal(const Token& token, ParsedValue& value, Tree& tree);
    bool named(const Token& token, ParsedValue& value, Tree& tree);
    bool isNeverFilled(const Token& token) const;
    bool sign(Token token, ParsedValue& value, bool evaluate, Tree& tree);
    bool negation(const Token& token, ParsedValue& value, bool evaluate, Tree& tree);
    bool unary(const Token& token, ParsedValue& value, bool evaluate, Tree& tree);
    bool parenthesis(ParsedValue& value, bool evaluate, Tree& tree);

    // Calls of commands.
    bool command(Token token, ParsedValue& value, bool evaluate, Tree& tree);
    bool arguments(const CmdToken& command, std::span<ParsedValue> values,
                   std::span<Tree* const> trees, bool evaluate);
    bool punctuation(const CmdToken& command, int type, long long code, const char* spelling);
    void execute(const CmdToken& command, std::span<const ParsedValue> values, ParsedValue& result);

    Token nextToken();
    bool failSyntax(std::string_view expected);
    bool failDepth();
    bool failCompile(std::string text, std::size_t position);
    void failEvaluation(Fault fault, const ParsedValue& left, const ParsedValue& right);
    bool isComputing() const { return evaluationFault_ == Fault::none; }

    CriteriaRules criteriaRules_;
    Lexer lexer_;
    const Fields* fields_ = nullptr;
    const Fields* variables_ = nullptr;
    EvaluationRules rules_{.pass = Pass::reading};
    IndexKeyFinder key_;
    Tree tree_;
    Program program_;
    bool parsed_ = false;
    unsigned depth_ = 0;
    std::size_t position_ = 0;             // of the last token
    Fault evaluationFault_ = Fault::none;  // the first one
    CompileError compileError_;
};

}  // namespace fscanner

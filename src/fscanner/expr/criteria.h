#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/expr/analyzer.h"

namespace fscanner {

/// A criteria: compiled once, checked against many records.
///
/// Owns its text; fields, variables and commands belong to others and have to
/// outlive it. Constructing one empties the list of commands, which are added
/// after that and before the first check. One thread at a time.
///
/// A criteria that does not compile matches nothing. `compile()` says so up
/// front and is remembered; without it only the first check is sure to give -1.
class CriteriaEvaluator {
public:
    explicit CriteriaEvaluator(const wchar_t* criteria, CriteriaRules rules = CriteriaRules::plain);
    CriteriaEvaluator(const CriteriaEvaluator&) = delete;
    CriteriaEvaluator& operator=(const CriteriaEvaluator&) = delete;
    ~CriteriaEvaluator() = default;

    /// The text; null when there is none.
    const wchar_t* getCriteria() const { return isValid() ? criteria_.c_str() : nullptr; }

    /// The lists to use where a check is given none. False for null.
    bool setFields(const Fields* fields);
    bool setVariables(const Fields* variables);

    /// See `addCmdToken` and `findCmdToken`.
    bool addCmd(const wchar_t* name, char resultType, char firstType, char secondType,
                BinaryCmd* command);
    bool addCmd(const wchar_t* name, char resultType, char argumentType, UnaryCmd* command);
    bool findCmd(const wchar_t* name, char firstType, char secondType) const;
    bool findCmd(const wchar_t* name, char argumentType) const;

    /// Compiles over the default fields and variables, executing nothing, unless
    /// it is compiled. False when it does not compile; every check gives -1 then.
    bool compile();
    /// Why `compile` failed; empty when it did not.
    const CompileError& compileError() const { return analyzer_->compileError(); }

    /// 1 match, 0 no match, -1 error. Null lists mean the defaults. The lists of
    /// all checks need the same names and types.
    int check(const Fields* fields, const Fields* variables, bool caseSensitive);
    int check(bool caseSensitive) { return check(nullptr, nullptr, caseSensitive); }
    /// Whether the last check gave -1 because of this record (a name that holds a
    /// "*" compared with a pattern; a zero divisor): the next may well match.
    bool failedOnRecord() const { return failedOnRecord_; }
    /// Why, in a few words; static.
    const char* recordError() const {
        return recordErrorText(failedOnRecord_ ? analyzer_->evaluationFault() : Fault::none);
    }
    /// The value of the last check that gave no error.
    const ExpValue& value() const { return value_; }

    /// What a record needs for a check. True, to be safe, until it compiles.
    bool readsField(const wchar_t* name) const;
    bool usesCommands() const;
    /// The fields it reads, in order of appearance.
    std::vector<std::wstring> fieldNames() const;
    const Tree& tree() const { return analyzer_->tree(); }

    /// A field and a value that it is compared with (see `IndexKeyFinder`). Compiles
    /// if need be. Null when there is none; a later call gives an empty object
    /// then, on purpose: look at its name string. Record sets look up `indexKeys`
    /// instead.
    ExpValue* getHashInfo();
    /// States the key itself: a copy is what `getHashInfo` gives from now on, and what
    /// record sets look up.
    bool setHashInfo(const ExpValue& info);
    /// What was stated; null when nothing was, or no field.
    const ExpValue* statedKey() const {
        return stated_ && !hashInfo_->name().empty() ? hashInfo_.get() : nullptr;
    }

private:
    bool isValid() const { return valid_; }
    void dryRun();

    std::unique_ptr<SyntaxAnalyzer> analyzer_;
    std::wstring criteria_;
    bool valid_;
    bool compiled_ = false;
    bool refused_ = false;
    bool failedOnRecord_ = false;
    bool stated_ = false;
    std::unique_ptr<ExpValue> hashInfo_;
    ExpValue value_;
    const Fields* fields_ = nullptr;
    const Fields* variables_ = nullptr;
};

}  // namespace fscanner

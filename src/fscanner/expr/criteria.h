#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/expr/analyzer.h"

namespace fscanner {

/// A criteria: compiled once, checked against many records.
///
/// Owns its text. Fields, variables and commands belong to others and have to
/// outlive it. The constructor empties the list of commands: add commands after that and
/// before the first check. One thread at a time.
///
/// A criteria that does not compile matches nothing. After a failed `compile()` every check
/// gives -1. Without `compile()` only the first check is sure to give -1.
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
    /// "*" compared with a pattern; a zero divisor). Another record may match.
    bool failedOnRecord() const { return failedOnRecord_; }
    /// The reason for that in a few words. A static text.
    const char* recordError() const {
        return recordErrorText(failedOnRecord_ ? analyzer_->evaluationFault() : Fault::none);
    }
    /// The value of the last check that gave no error.
    const ExpValue& value() const { return value_; }

    /// Which facts of a record a check reads. True, to be safe, until the criteria is compiled.
    bool readsField(const wchar_t* name) const;
    bool usesCommands() const;
    /// The fields it reads, in order of appearance.
    std::vector<std::wstring> fieldNames() const;
    const Tree& tree() const { return analyzer_->tree(); }

    /// A field and a value that it is compared with (see `IndexKeyFinder`). Compiles
    /// if need be. If there is none, the first call gives null and later calls an object with an
    /// empty name, on purpose: test the name as well. Record sets look up `indexKeys`
    /// instead.
    ExpValue* getHashInfo();
    /// Sets the key: from now on `getHashInfo` gives a copy of it, and record sets look
    /// it up.
    bool setHashInfo(const ExpValue& info);
    /// The key that `setHashInfo` set. Null if it set none, or one without a field.
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

#include "fscanner/expr/criteria.h"

namespace fscanner {

CriteriaEvaluator::CriteriaEvaluator(const wchar_t* criteria, CriteriaRules rules)
    : analyzer_(std::make_unique<SyntaxAnalyzer>(rules)),
      criteria_(criteria ? criteria : L""),
      valid_(criteria != nullptr) {}

bool CriteriaEvaluator::setFields(const Fields* fields) {
    if (!isValid() || !fields) return false;
    fields_ = fields;
    return true;
}

bool CriteriaEvaluator::setVariables(const Fields* variables) {
    if (!isValid() || !variables) return false;
    variables_ = variables;
    return true;
}

bool CriteriaEvaluator::addCmd(const wchar_t* name, char resultType, char firstType,
                               char secondType, BinaryCmd* command) {
    return addCmdToken(name, resultType, firstType, secondType, command);
}

bool CriteriaEvaluator::addCmd(const wchar_t* name, char resultType, char argumentType,
                               UnaryCmd* command) {
    return addCmdToken(name, resultType, argumentType, command);
}

bool CriteriaEvaluator::findCmd(const wchar_t* name, char firstType, char secondType) const {
    return findCmdToken(name, firstType, secondType);
}

bool CriteriaEvaluator::findCmd(const wchar_t* name, char argumentType) const {
    return findCmdToken(name, argumentType);
}

bool CriteriaEvaluator::compile() {
    if (!isValid()) return false;
    if (!compiled_) dryRun();
    refused_ = analyzer_->hasCompileError();
    return !refused_;
}

/// Compiles. Drops the value of the evaluation that goes with it.
void CriteriaEvaluator::dryRun() {
    ExpValue scratch;
    analyzer_->setDryRun(true);
    analyzer_->parse(criteria_.c_str(), fields_, variables_, scratch, true);
    analyzer_->setDryRun(false);
    compiled_ = true;
}

/// Without `compile()`, the part of a criteria in front of its error stays compiled, on purpose:
/// later checks give the value of that part.
int CriteriaEvaluator::check(const Fields* fields, const Fields* variables, bool caseSensitive) {
    failedOnRecord_ = false;
    if (!isValid() || refused_) return -1;
    if (!fields) fields = fields_;
    if (!variables) variables = variables_;
    int error;
    if (compiled_) {
        error = analyzer_->parse(fields, variables, value_, caseSensitive);
    } else {
        compiled_ = true;
        error = analyzer_->parse(criteria_.c_str(), fields, variables, value_, caseSensitive);
    }
    if (error == 0) return static_cast<int>(value_.getNumericValue());
    failedOnRecord_ = !analyzer_->hasCompileError();
    return -1;
}

bool CriteriaEvaluator::readsField(const wchar_t* name) const {
    if (!name) return false;
    if (!compiled_ || analyzer_->hasCompileError()) return true;
    return analyzer_->program().readsField(name);
}

bool CriteriaEvaluator::usesCommands() const {
    if (!compiled_ || analyzer_->hasCompileError()) return true;
    return analyzer_->program().usesCommands();
}

std::vector<std::wstring> CriteriaEvaluator::fieldNames() const {
    return analyzer_->program().fieldNames();
}

ExpValue* CriteriaEvaluator::getHashInfo() {
    if (!isValid()) return nullptr;
    if (hashInfo_) return hashInfo_.get();
    if (!fields_) return nullptr;
    hashInfo_ = std::make_unique<ExpValue>();
    if (!compiled_) dryRun();
    return analyzer_->getHashValue(*hashInfo_) ? hashInfo_.get() : nullptr;
}

bool CriteriaEvaluator::setHashInfo(const ExpValue& info) {
    if (!isValid()) return false;
    stated_ = true;
    if (hashInfo_) {
        *hashInfo_ = info;
    } else {
        hashInfo_ = std::make_unique<ExpValue>(info);
    }
    return true;
}

}  // namespace fscanner

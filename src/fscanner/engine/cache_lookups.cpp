#include "fscanner/common/wildcard.h"
#include "fscanner/engine/cache_store.h"

namespace fscanner {

namespace {

constexpr unsigned kInt32 = 3;
constexpr unsigned kText = 5;

}  // namespace

CacheLookups::CacheLookups() {
    for (const wchar_t* name : {L"id", L"pathid", L"parentid"}) variables_.add(name, kInt32);
    for (const wchar_t* name : {L"pathname", L"shortpathname", L"filename", L"shortfilename"})
        variables_.add(name, kText);
    id_ = fieldAs<Int32Field>(variables_.at(0));
    pathId_ = fieldAs<Int32Field>(variables_.at(1));
    parentId_ = fieldAs<Int32Field>(variables_.at(2));
    pathName_ = fieldAs<TextField>(variables_.at(3));

    for (const wchar_t* name : {L"ID", L"PATHID", L"PARENTID"}) fields_.add(name, kInt32);
    for (const wchar_t* name : {L"PATHNAME", L"SHORTPATHNAME", L"FILENAME", L"SHORTFILENAME"})
        fields_.add(name, kText);

    valid_ = true;
    const auto make = [this](const wchar_t* criteria) {
        auto evaluator = std::make_unique<CriteriaEvaluator>(criteria);
        valid_ = evaluator->setVariables(&variables_) && evaluator->setFields(&fields_) &&
                 evaluator->compile() && valid_;
        return evaluator;
    };
    ceByPathId_ = make(L"[PATHID]==pathid");
    ceByParentId_ = make(L"[PARENTID]==parentid");
    ceById_ = make(L"[ID]==id");
    ceByShortOrLongPathName_ = make(L"[SHORTPATHNAME]==shortpathname || [PATHNAME]==pathname");
    ceByPathName_ = make(L"[PATHNAME]==pathname");
    ceByPathIdAndShortOrLongFileName_ =
        make(L"[PATHID]==pathid && ([FILENAME]==filename || [SHORTFILENAME]==shortfilename)");
    ceByPathIdAndFileName_ = make(L"[PATHID]==pathid && [FILENAME]==filename");
    ceAnyPathName_ = make(L"1==1");
}

bool CacheLookups::lookUp(RecordSet& records, CriteriaEvaluator& evaluator, const wchar_t* field,
                          Int32Field& variable, unsigned value) {
    hashInfo_.setType(NUMERIC);
    hashInfo_.setNumericValue(value);
    hashInfo_.setNValueString(field);
    variable.value(value);
    evaluator.setHashInfo(hashInfo_);
    records.setCriteria(&evaluator, true);
    return records.moveFirst();
}

bool CacheLookups::byId(RecordSet& directories, unsigned id) {
    return lookUp(directories, *ceById_, L"ID", *id_, id);
}

bool CacheLookups::byParentId(RecordSet& directories, unsigned id) {
    return lookUp(directories, *ceByParentId_, L"PARENTID", *parentId_, id);
}

bool CacheLookups::byPathId(RecordSet& files, unsigned id) {
    return lookUp(files, *ceByPathId_, L"PATHID", *pathId_, id);
}

bool CacheLookups::byPathName(RecordSet& directories, const std::wstring& name, bool caseFlag) {
    // A name that holds "*" or "?" would be compared as a pattern, or not at all.
    CriteriaEvaluator& evaluator = checkWildCard(name.c_str()) ? *ceAnyPathName_ : *ceByPathName_;
    hashInfo_.setType(STRING);
    hashInfo_.setStringValue(name.c_str());
    hashInfo_.setNValueString(L"PATHNAME");
    pathName_->value(name.c_str());
    evaluator.setHashInfo(hashInfo_);
    directories.setCriteria(&evaluator, caseFlag);
    return directories.moveFirst();
}

}  // namespace fscanner

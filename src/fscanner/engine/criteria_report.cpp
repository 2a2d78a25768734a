#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/explain.h"
#include "fscanner/expr/token.h"

namespace fscanner {

namespace {

/// Stands for a command of a search while a criteria is compiled: it has a name
/// and a signature, and is never executed.
class StandInCommand final : public BinaryCmd {
public:
    int execute(const ExpValue&, const ExpValue&, ExpValue&) override { return -1; }
};

/// The fields of a file that a criteria can read, in the order of a search.
Fields searchFields() {
    Fields fields;
    fields.add(L"FILENAME", FIELD_TEXT);
    fields.add(L"SHORTFILENAME", FIELD_TEXT);
    fields.add(L"SIZE", FIELD_INT64);
    fields.add(L"ATTR", FIELD_INT32);
    fields.add(L"PATHID", FIELD_INT32);
    return fields;
}

/// What an extraction from the cache would look up: see `Extraction::run`.
void describeIndex(const CriteriaEvaluator& criteria, bool caseSensitive, bool patterns,
                   FsCriteriaReport& report) {
    if (criteria.usesCommands()) return;
    for (const ExpValue& key : indexKeys(criteria.tree(), caseSensitive)) {
        const bool isText = key.getType() == STRING;
        if (!isIndexedFileField(key.name()) || (isText && patterns)) continue;
        report.indexField = key.name();
        report.indexKey =
            isText ? std::wstring(key.text()) : std::to_wstring(key.getNumericValue());
        return;
    }
}

void describe(const wchar_t* text, bool caseSensitive, bool patterns, FsCriteriaReport& report) {
    // A host may ask in the middle of a query, whose commands have to stay.
    const CommandListShelter shelter;
    const Fields fields = searchFields();
    StandInCommand command;
    CriteriaEvaluator criteria(text, CriteriaRules::search);
    criteria.setFields(&fields);
    criteria.addCmd(L"path", STRING, NUMERIC, STRING, &command);
    criteria.addCmd(L"type", NUMERIC, STRING, STRING, &command);
    report.compiles = criteria.compile();
    report.error = criteria.compileError().text;
    report.position = static_cast<unsigned>(criteria.compileError().position);
    if (!report.compiles) return;
    report.tree = dumpTree(criteria.tree());
    report.fields = criteria.fieldNames();
    describeIndex(criteria, caseSensitive, patterns, report);
}

}  // namespace

FsCriteriaReport fsCheckCriteria(const wchar_t* criteria) {
    return fsCheckCriteria(criteria, true);
}

FsCriteriaReport fsCheckCriteria(const wchar_t* criteria, bool caseSensitive) {
    return describeCriteria(criteria, caseSensitive, false);
}

FsCriteriaReport describeCriteria(const wchar_t* criteria, bool caseSensitive, bool patterns) {
    FsCriteriaReport report;
    if (!criteria) {
        report.error = "no criteria";
        return report;
    }
    try {
        describe(criteria, caseSensitive, patterns, report);
    } catch (...) {
        report = FsCriteriaReport();
        report.error = "out of memory";
    }
    return report;
}

}  // namespace fscanner

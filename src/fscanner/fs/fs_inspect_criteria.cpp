#include "fscanner/expr/token.h"
#include "fscanner/fs/fs_inspect.h"

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

void describeIndex(CriteriaEvaluator& criteria, FsCriteriaReport& report) {
    const ExpValue* key = criteria.getHashInfo();
    if (!key) return;
    report.indexField = key->name();
    report.indexKey = key->getType() == STRING ? std::wstring(key->text())
                                               : std::to_wstring(key->getNumericValue());
}

void describe(const wchar_t* text, FsCriteriaReport& report) {
    // A host may ask in the middle of a query, whose commands have to stay.
    const CommandListShelter shelter;
    const Fields fields = searchFields();
    StandInCommand command;
    CriteriaEvaluator criteria(text);
    criteria.setFields(&fields);
    criteria.addCmd(L"path", STRING, NUMERIC, STRING, &command);
    criteria.addCmd(L"type", NUMERIC, STRING, STRING, &command);
    report.compiles = criteria.compile();
    report.error = criteria.compileError().text;
    report.position = static_cast<unsigned>(criteria.compileError().position);
    if (!report.compiles) return;
    report.tree = dumpTree(criteria.tree());
    report.fields = criteria.fieldNames();
    describeIndex(criteria, report);
}

}  // namespace

FsCriteriaReport fsCheckCriteria(const wchar_t* criteria) {
    FsCriteriaReport report;
    if (!criteria) {
        report.error = "no criteria";
        return report;
    }
    try {
        describe(criteria, report);
    } catch (...) {
        report = FsCriteriaReport();
        report.error = "out of memory";
    }
    return report;
}

}  // namespace fscanner

// Measures the evaluation of criteria over records, and a bare loop over the same data.
//
// "check" evaluates the fields of one record again and again: it measures the evaluation alone.
// "record" stores the values of each record in the fields first, as a scan does.

#include <string>
#include <string_view>

#include "fscanner/common/fields.h"
#include "fscanner/expr/criteria.h"
#include "micro_records.h"

namespace {

using bench::overRecords;
using bench::Record;
using namespace fscanner;

bool isHeader(const Record& record) {
    return std::wstring_view(record.name).ends_with(L".h");
}
bool isLarge(const Record& record) {
    return record.size > 1000;
}
bool isLargeHeader(const Record& record) {
    return isLarge(record) && isHeader(record);
}

/// A criteria and the fields that it reads.
class Criteria {
public:
    explicit Criteria(const wchar_t* text) : evaluator_(text) {
        fields_.add(L"FILENAME", FIELD_TEXT);
        fields_.add(L"SIZE", FIELD_INT64);
        name_ = fields_.as<TextField>(0);
        size_ = fields_.as<Int64Field>(1);
        evaluator_.setFields(&fields_);
    }
    bool compile() { return evaluator_.compile(); }
    void set(const Record& record) {
        name_->assign(record.name);
        size_->value(record.size);
    }
    bool check() { return evaluator_.check(true) == 1; }

private:
    Fields fields_;
    TextField* name_;
    Int64Field* size_;
    CriteriaEvaluator evaluator_;
};

void evaluate(benchmark::State& state, const wchar_t* text, bool perRecord) {
    Criteria criteria(text);
    if (!criteria.compile()) return state.SkipWithError("the criteria does not compile");
    criteria.set(bench::records().front());
    overRecords(state, [&](const Record& record) {
        if (perRecord) criteria.set(record);
        return criteria.check();
    });
}

const bool kRegistered = [] {
    struct Case {
        const char* name;
        const wchar_t* criteria;
        bool (*bare)(const Record&);
    };
    const Case cases[] = {
        {"name", L"[FILENAME]==\"*.h\"", isHeader},
        {"size", L"[SIZE]>1000", isLarge},
        {"both", L"[SIZE]>1000 && [FILENAME]==\"*.h\"", isLargeHeader},
    };
    for (const Case& c : cases) {
        const std::string name = std::string("criteria/") + c.name;
        benchmark::RegisterBenchmark(
            (name + "/bare").c_str(),
            [bare = c.bare](benchmark::State& state) { overRecords(state, bare); });
        benchmark::RegisterBenchmark((name + "/check").c_str(), evaluate, c.criteria, false);
        benchmark::RegisterBenchmark((name + "/record").c_str(), evaluate, c.criteria, true);
    }
    return true;
}();

}  // namespace

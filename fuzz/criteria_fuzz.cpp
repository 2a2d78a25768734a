// A criteria from outside, on two records: whatever the text, errors lie within it and
// the part that was read gives what the slow and obvious evaluation makes of it.

#include <clocale>

#include "expr/judge.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fscanner;
    static SampleRecord record;
    Input input(data, size);
    const bool caseSensitive = input.byte() % 2 == 0;
    const std::wstring text = wideText(input.rest());
    record.name(L"a.txt");
    Criteria criteria(text, record);
    criteria.evaluator.check(caseSensitive);
    require(Tree::preVisit(criteria.evaluator.tree().getRoot()));
    require(criteria.evaluator.compileError().position <= text.size());

    record.name(L"b*.TXT");
    criteria.join.calls.clear();
    const int result = criteria.evaluator.check(caseSensitive);
    Judge judge(record, caseSensitive, false);
    const auto verdict = judge.evaluate(criteria.evaluator.tree().getRoot());
    require(result == (verdict ? static_cast<int>(verdict->number) : -1));
    require(criteria.join.calls == judge.calls());
    return 0;
}

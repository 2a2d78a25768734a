#pragma once

#include <vector>

#include "fscanner/expr/criteria.h"
#include "support/log_capture.h"

namespace fscanner {

/// Fields of every class and two variables, with values that a test changes.
struct SampleRecord {
    SampleRecord() {
        fields.add(L"NAME", FIELD_TEXT);
        fields.add(L"TITLE", FIELD_TEXT);
        fields.add(L"BYTE", FIELD_INT8);
        fields.add(L"SHORT", FIELD_INT16);
        fields.add(L"PATHID", FIELD_INT32);
        fields.add(L"BIG", FIELD_INT64);
        variables.add(L"limit", FIELD_INT32);
        variables.add(L"wanted", FIELD_TEXT);
        name(L"a.txt");
        title(std::wstring(200, L't'));
        fields.as<Int8Field>(2)->value(200);
        fields.as<Int16Field>(3)->value(40000);
        pathId(5);
        big(4294967296ULL);
        variables.as<Int32Field>(0)->value(3000000000U);
        variables.as<TextField>(1)->value(L"a.txt");
    }

    void name(const wchar_t* text) { fields.as<TextField>(0)->value(text); }
    void title(const std::wstring& text) { fields.as<TextField>(1)->value(text.c_str()); }
    void pathId(unsigned id) { fields.as<Int32Field>(4)->value(id); }
    void big(unsigned long long n) { fields.as<Int64Field>(5)->value(n); }

    Fields fields;
    Fields variables;
};

/// join(number, text): the text behind the number. Writes down its calls, and
/// fails on the text "fail".
class JoinCommand final : public BinaryCmd {
public:
    int execute(const ExpValue& first, const ExpValue& second, ExpValue& result) override {
        const std::wstring text(second.text());
        calls.push_back(std::to_wstring(first.getNumericValue()) + text);
        result.setType(STRING);
        result.setStringValue(calls.back().c_str());
        return text == L"fail";
    }
    std::vector<std::wstring> calls;
};

/// length(text): its number of characters.
class LengthCommand final : public UnaryCmd {
public:
    int execute(const ExpValue& argument, ExpValue& result) override {
        result.setType(NUMERIC);
        result.setNumericValue(static_cast<long long>(argument.text().size()));
        return 0;
    }
};

/// A criteria over a record, with both commands.
struct Criteria {
    Criteria(const std::wstring& text, SampleRecord& record,
             CriteriaRules rules = CriteriaRules::plain)
        : evaluator(text.c_str(), rules) {
        evaluator.setFields(&record.fields);
        evaluator.setVariables(&record.variables);
        evaluator.addCmd(L"join", STRING, NUMERIC, STRING, &join);
        evaluator.addCmd(L"length", NUMERIC, STRING, &length);
    }
    /// The value of one more check as text: a number, a quoted text, or "fails".
    std::wstring check(bool caseSensitive = true) {
        if (evaluator.check(caseSensitive) == -1 && failed()) return L"fails";
        const ExpValue& value = evaluator.value();
        if (value.getType() == STRING) return L'"' + std::wstring(value.text()) + L'"';
        return std::to_wstring(value.getNumericValue());
    }
    bool failed() const {
        return evaluator.failedOnRecord() || !evaluator.compileError().text.empty();
    }

    JoinCommand join;
    LengthCommand length;
    CriteriaEvaluator evaluator;
};

}  // namespace fscanner

#include <gtest/gtest.h>

#include <sstream>

#include "build_paths.h"
#include "expr/sample_record.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_inspect.h"

/// Runs every example of docs/expression-language.md.
namespace fscanner {
namespace {

struct Example {
    std::string kind;  // the word behind the fence
    std::wstring criteria;
    std::string outcome;
};

std::vector<Example> examples() {
    std::istringstream manual(readWholeFile(FSCANNER_SOURCE_DIR "/docs/expression-language.md"));
    std::vector<Example> all;
    std::string kind;
    for (std::string line; std::getline(manual, line);) {
        if (line.starts_with("```")) {
            kind = line.substr(3);
            continue;
        }
        const std::size_t arrow = line.find(" => ");
        if (kind.empty() || arrow == line.npos) continue;
        const std::size_t end = line.find_last_not_of(' ', arrow) + 1;
        all.push_back({kind, toWide(line.substr(0, end)), line.substr(arrow + 4)});
    }
    return all;
}

/// The two commands of a search, for the manual's file.
class ManualPath final : public BinaryCmd {
public:
    int execute(const ExpValue&, const ExpValue& name, ExpValue& result) override {
        result.set(STRING, 0, L"/home/ann/" + std::wstring(name.text()));
        return 0;
    }
};
class ManualType final : public BinaryCmd {
public:
    int execute(const ExpValue& path, const ExpValue& type, ExpValue& result) override {
        result.set(NUMERIC, path.text() == L"/home/ann/Report.txt" && type.text() == L"ASCII", L"");
        return 0;
    }
};

struct ManualFile {
    ManualFile() {
        for (const auto& [name, kind] : {std::pair{L"FILENAME", FIELD_TEXT},
                                         {L"SHORTFILENAME", FIELD_TEXT},
                                         {L"SIZE", FIELD_INT64},
                                         {L"ATTR", FIELD_INT32},
                                         {L"PATHID", FIELD_INT32}})
            fields.add(name, kind);
        variables.add(L"limit", FIELD_INT32);
    }
    void fill() {
        fields.as<TextField>(0)->value(L"Report.txt");
        fields.as<TextField>(1)->value(L"REPORT~1.TXT");
        fields.as<Int64Field>(2)->value(2500);
        fields.as<Int32Field>(3)->value(8206);
        fields.as<Int32Field>(4)->value(12);
        variables.as<Int32Field>(0)->value(1000);
    }
    void attach(CriteriaEvaluator& criteria) {
        criteria.setFields(&fields);
        criteria.setVariables(&variables);
        criteria.addCmd(L"path", STRING, NUMERIC, STRING, &path);
        criteria.addCmd(L"type", NUMERIC, STRING, STRING, &type);
    }

    Fields fields, variables;
    ManualPath path;
    ManualType type;
};

std::string outcomeOf(const Example& example) {
    ManualFile file;
    file.fill();
    CriteriaEvaluator criteria(example.criteria.c_str(), example.kind == "search"
                                                             ? CriteriaRules::search
                                                             : CriteriaRules::plain);
    file.attach(criteria);
    if (!criteria.compile()) {
        const CompileError& error = criteria.compileError();
        return "error " + std::to_string(error.position) + ": " + error.text;
    }
    criteria.check(example.kind != "criteria-any-case");
    if (criteria.failedOnRecord()) return std::string("record: ") + criteria.recordError();
    return std::to_string(criteria.value().getNumericValue());
}

std::string indexOf(const Example& example) {
    const bool caseSensitive = example.kind != "index-any-case";
    const FsCriteriaReport report = fsCheckCriteria(example.criteria.c_str(), caseSensitive);
    EXPECT_TRUE(report.compiles) << report.error;
    if (report.indexField.empty()) return "none";
    return toMultibyte(report.indexField) + " = " + toMultibyte(report.indexKey);
}

TEST(Manual, EveryExampleIsTrue) {
    const std::vector<Example> all = examples();
    ASSERT_GT(all.size(), 70U) << "the manual's form has changed";
    for (const Example& example : all) {
        const bool index = example.kind.starts_with("index");
        EXPECT_EQ(index ? indexOf(example) : outcomeOf(example), example.outcome)
            << toMultibyte(example.criteria);
    }
}

TEST(CheckCriteria, DescribesWhatItCompiledOrWhatIsWrongAndWhere) {
    const FsCriteriaReport report = fsCheckCriteria(
        L"[FILENAME]==\"a.h\" && type(path([PATHID],[FILENAME]),\"ELF\") && [SIZE]>[ATTR]");
    EXPECT_TRUE(report.compiles);
    EXPECT_EQ(report.tree,
              L"(&& (&& (== [FILENAME] \"a.h\") (type (path [PATHID] [FILENAME]) \"ELF\"))"
              L" (> [SIZE] [ATTR]))");
    EXPECT_EQ(report.fields, (std::vector<std::wstring>{L"FILENAME", L"PATHID", L"SIZE", L"ATTR"}));
    EXPECT_EQ(report.indexField, L"") << "with a command all records are read";
    const FsCriteriaReport wrong = fsCheckCriteria(L"[SIZE]>1 && [NAME]==\"x\"");
    EXPECT_FALSE(wrong.compiles);
    EXPECT_EQ(wrong.error, "no field [NAME]");
    EXPECT_EQ(wrong.position, 12U);
    EXPECT_TRUE(wrong.fields.empty());
    EXPECT_EQ(fsCheckCriteria(nullptr).error, "no criteria");
}

TEST(CheckCriteria, LeavesTheCommandsOfARunningQuery) {
    SampleRecord record;
    Criteria running(L"join(1,\"a\")==\"1a\"", record);
    EXPECT_EQ(running.check(), L"1");
    EXPECT_TRUE(fsCheckCriteria(L"path(1,\"a\")==\"b\"").compiles);
    EXPECT_EQ(running.check(), L"1");
    EXPECT_EQ(cmdTokenList.size(), 2U);
}

}  // namespace
}  // namespace fscanner

#include <gtest/gtest.h>

#include "expr/sample_record.h"

namespace fscanner {
namespace {

using Names = std::vector<std::wstring>;

TEST(Criteria, WithoutATextNothingWorks) {
    SampleRecord record;
    CriteriaEvaluator evaluator(nullptr);
    EXPECT_EQ(evaluator.getCriteria(), nullptr);
    EXPECT_FALSE(evaluator.setFields(&record.fields));
    EXPECT_FALSE(evaluator.setVariables(&record.variables));
    EXPECT_FALSE(evaluator.compile());
    EXPECT_EQ(evaluator.check(true), -1);
    EXPECT_EQ(evaluator.getHashInfo(), nullptr);
    EXPECT_FALSE(evaluator.setHashInfo(ExpValue()));
}

TEST(Criteria, HashInfoIsFoundOnceAndCanBeStated) {
    SampleRecord record;
    CriteriaEvaluator found(L"[PATHID] == 12");
    EXPECT_FALSE(found.setFields(nullptr));
    EXPECT_EQ(found.getHashInfo(), nullptr) << "no fields yet";
    found.setFields(&record.fields);
    ExpValue* info = found.getHashInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->getNValueString(), L"PATHID");
    EXPECT_EQ(info->getType(), NUMERIC);
    EXPECT_EQ(info->getNumericValue(), 12);
    EXPECT_EQ(found.getHashInfo(), info);

    CriteriaEvaluator none(L"[PATHID] == 12 || [PATHID] == 13");
    none.setFields(&record.fields);
    EXPECT_EQ(none.getHashInfo(), nullptr);
    ASSERT_NE(none.getHashInfo(), nullptr) << "from the second call on an empty object";
    EXPECT_STREQ(none.getHashInfo()->getNValueString(), L"");

    ExpValue stated;
    stated.setType(STRING);
    stated.setStringValue(std::wstring(300, L'x').c_str());
    stated.setNValueString(L"PATHNAME");
    EXPECT_TRUE(none.setHashInfo(stated));
    EXPECT_EQ(none.getHashInfo()->text(), std::wstring(300, L'x'));
    EXPECT_STREQ(none.getHashInfo()->getNValueString(), L"PATHNAME");
}

TEST(Criteria, AFailureOnOneRecordLeavesTheNext) {
    SampleRecord record;
    for (const bool compileFirst : {false, true}) {
        Criteria criteria(L"[NAME]==\"*.txt\"", record);
        if (compileFirst) {
            EXPECT_TRUE(criteria.evaluator.compile());
        }
        record.name(L"a*.txt");
        EXPECT_EQ(criteria.evaluator.check(true), -1);
        EXPECT_TRUE(criteria.evaluator.failedOnRecord());
        EXPECT_STREQ(criteria.evaluator.recordError(), "two patterns cannot be compared");
        record.name(L"a.txt");
        EXPECT_EQ(criteria.evaluator.check(true), 1);
        EXPECT_FALSE(criteria.evaluator.failedOnRecord());
        EXPECT_STREQ(criteria.evaluator.recordError(), "");
        EXPECT_EQ(criteria.evaluator.getHashInfo(), nullptr);
    }
    Criteria completed(L"[PATHID]/0==1 || [NAME]==\"a\" && [BYTE]==\"x\"", record);
    EXPECT_EQ(completed.evaluator.check(true), -1);
    EXPECT_FALSE(completed.evaluator.failedOnRecord()) << "the type error behind it decides";
}

TEST(Criteria, AFailureOnOneRecordGivesNoWrongKey) {
    SampleRecord record;
    record.name(L"a*");
    Criteria joined(L"[NAME]==\"*.txt\" && [TITLE]==\"x\"+\"y\"", record);
    EXPECT_EQ(joined.evaluator.check(true), -1);
    EXPECT_EQ(joined.evaluator.getHashInfo(), nullptr) << "the text was not joined";
    Criteria plain(L"[NAME]==\"*.txt\" && [PATHID]==5", record);
    EXPECT_EQ(plain.evaluator.check(true), -1);
    ASSERT_NE(plain.evaluator.getHashInfo(), nullptr);
    EXPECT_EQ(plain.evaluator.getHashInfo()->getNumericValue(), 5);
}

TEST(Criteria, CompileIsFinalAndARepeatedCallSaysTheSame) {
    SampleRecord record;
    Criteria bad(L"1 2", record);
    EXPECT_EQ(bad.evaluator.check(true), -1);
    EXPECT_FALSE(bad.evaluator.failedOnRecord());
    EXPECT_EQ(bad.evaluator.check(true), 1) << "what was read of it";
    EXPECT_FALSE(bad.evaluator.compile());
    EXPECT_FALSE(bad.evaluator.compile());
    EXPECT_EQ(bad.evaluator.check(true), -1);

    Criteria good(L"join([PATHID],[NAME])==\"5a.txt\"", record);
    EXPECT_TRUE(good.evaluator.compile());
    EXPECT_TRUE(good.evaluator.compile());
    EXPECT_TRUE(good.join.calls.empty());
    EXPECT_EQ(good.evaluator.check(true), 1);
    EXPECT_EQ(good.join.calls, Names{L"5a.txt"});
}

TEST(Criteria, TellsWhatARecordNeeds) {
    SampleRecord record;
    Criteria criteria(L"limit==3 || [NAME]==\"a\" && ([BIG]>1 || [NAME]==wanted)", record);
    EXPECT_TRUE(criteria.evaluator.readsField(L"PATHID")) << "unknown until it compiles";
    EXPECT_TRUE(criteria.evaluator.usesCommands());
    ASSERT_TRUE(criteria.evaluator.compile());
    EXPECT_EQ(criteria.evaluator.fieldNames(), (Names{L"NAME", L"BIG"}));
    EXPECT_TRUE(criteria.evaluator.readsField(L"BIG"));
    EXPECT_FALSE(criteria.evaluator.readsField(L"PATHID"));
    EXPECT_FALSE(criteria.evaluator.readsField(L"limit"));
    EXPECT_FALSE(criteria.evaluator.readsField(nullptr));
    EXPECT_FALSE(criteria.evaluator.usesCommands());

    Criteria calling(L"length(\"a\")==1", record);
    ASSERT_TRUE(calling.evaluator.compile());
    EXPECT_TRUE(calling.evaluator.usesCommands());
    EXPECT_TRUE(calling.evaluator.fieldNames().empty());
}

TEST(Criteria, FollowsTheListsThatItIsGiven) {
    SampleRecord record;
    Criteria criteria(L"[NAME]+wanted", record);
    ASSERT_EQ(criteria.check(), L"\"a.txta.txt\"");
    SampleRecord other;
    other.name(L"other");
    EXPECT_EQ(criteria.evaluator.check(&other.fields, nullptr, true), 0);
    EXPECT_EQ(criteria.evaluator.value().text(), L"othera.txt");
    EXPECT_EQ(criteria.check(), L"\"a.txta.txt\"");

    // The same list with other fields in it, in another order.
    record.fields.removeAll();
    record.fields.add(L"BYTE", FIELD_INT8);
    EXPECT_EQ(criteria.check(), L"fails") << "the field is gone";
    record.fields.add(L"NAME", FIELD_TEXT);
    record.fields.as<TextField>(1)->value(L"new");
    EXPECT_EQ(criteria.check(), L"\"newa.txt\"");
    record.fields.at(1)->setName(L"OTHER");
    EXPECT_EQ(criteria.check(), L"fails") << "it is called otherwise";
    record.fields.at(0)->setName(L"NAME");
    EXPECT_EQ(criteria.check(), L"fails") << "it is a number now";
    EXPECT_TRUE(criteria.evaluator.failedOnRecord());
}

TEST(Criteria, CommandsMayVanish) {
    SampleRecord record;
    Criteria criteria(L"join(1,[NAME])==\"1a.txt\"", record);
    EXPECT_EQ(criteria.check(), L"1");
    {
        const CommandListShelter shelter;
        const CriteriaEvaluator another(L"1");
        EXPECT_TRUE(cmdTokenList.empty());
    }
    EXPECT_EQ(criteria.check(), L"1") << "put back";
    { const CommandListGuard guard; }
    EXPECT_EQ(criteria.check(), L"fails");
    // Another command in its place is held to its own signature.
    LengthCommand length;
    addCmdToken(L"length", NUMERIC, STRING, &length);
    EXPECT_EQ(criteria.check(), L"fails");
}

TEST(Criteria, CommandsSeeWhichFieldAnArgumentIs) {
    SampleRecord record;
    Criteria criteria(L"join(1,[NAME])==\"\" || join(1,\"x\")==\"\"", record);
    criteria.check();
    criteria.check();
    EXPECT_EQ(criteria.join.names, (Names{L"NAME", L"", L"NAME", L""}));
}

/// Gives its argument the first time, and leaves the result alone afterwards.
class OnceCommand final : public UnaryCmd {
public:
    int execute(const ExpValue& argument, ExpValue& result) override {
        if (!executed) result = argument;
        executed = true;
        return 0;
    }
    bool executed = false;
};

TEST(Criteria, EveryCallOfACommandFillsAFreshResult) {
    SampleRecord record;
    OnceCommand once;
    Criteria criteria(L"once([NAME])", record);
    criteria.evaluator.addCmd(L"once", STRING, STRING, &once);
    criteria.evaluator.compile();
    EXPECT_EQ(criteria.check(), L"\"a.txt\"");
    EXPECT_EQ(criteria.check(), L"0");
}

TEST(Criteria, AFailedParseLeavesTheValue) {
    SampleRecord record;
    for (const wchar_t* text : {L"(7", L"7/0", L"[NAME]"}) {
        SyntaxAnalyzer analyzer;
        ExpValue value;
        value.set(STRING, 42, L"kept");
        EXPECT_EQ(analyzer.parse(nullptr, nullptr, value, true), 1) << "nothing is compiled";
        EXPECT_EQ(analyzer.parse(nullptr, nullptr, nullptr, value, true), 1);
        EXPECT_EQ(analyzer.parse(text, nullptr, nullptr, value, true), 1);
        EXPECT_EQ(value.getNumericValue(), 42) << text;
        EXPECT_STREQ(value.getStringValue(), L"kept");
    }
}

TEST(Criteria, ACommandTokenRemembersWhetherItsValueDecides) {
    SampleRecord record;
    const auto executes = [&](const wchar_t* text) {
        const Criteria criteria(text, record);
        const_cast<CriteriaEvaluator&>(criteria.evaluator).check(true);
        return criteria.evaluator.tree().getRoot()->right->data.getExecute();
    };
    EXPECT_FALSE(executes(L"1 || length(\"a\")"));
    EXPECT_TRUE(executes(L"0 || length(\"a\")"));
    EXPECT_TRUE(executes(L"1 && length(\"a\")"));
    EXPECT_FALSE(executes(L"0 && length(\"a\")"));
}

TEST(ExpValue, ResetTakesTheTwoTypesOnly) {
    ExpValue value;
    value.set(STRING, 7, L"text");
    EXPECT_FALSE(resetExpValue(2, value));
    EXPECT_STREQ(value.getStringValue(), L"text");
    EXPECT_TRUE(resetExpValue(NUMERIC, value));
    EXPECT_EQ(value.getNumericValue(), 0);
    EXPECT_EQ(value.getType(), NUMERIC);
    EXPECT_TRUE(resetExpValue(STRING, value));
    EXPECT_STREQ(value.getStringValue(), L"");
    EXPECT_EQ(value.getType(), STRING);
}

TEST(Tree, MergePutsBothBelowANewRoot) {
    Tree tree;
    Tree other;
    EXPECT_TRUE(tree.merge(&other));
    EXPECT_EQ(tree.getRoot(), nullptr);
    other.setRoot();
    EXPECT_TRUE(tree.merge(&other));
    EXPECT_EQ(other.getRoot(), nullptr);
    EXPECT_EQ(Tree::getLeft(tree.getRoot()), nullptr);
    EXPECT_NE(Tree::getRight(tree.getRoot()), nullptr);
    EXPECT_FALSE(Tree::preVisit(tree.getRoot())) << "no left child";
    Tree::setLeftTreeNode(tree.getRoot());
    EXPECT_TRUE(Tree::preVisit(tree.getRoot()));
}

}  // namespace
}  // namespace fscanner

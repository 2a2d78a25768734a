#include <gtest/gtest.h>

#include "expr/sample_record.h"

namespace fscanner {
namespace {

using Names = std::vector<std::wstring>;

TEST(Criteria, HashInfoIsFoundOnceAndCanBeStated) {
    SampleRecord record;
    CriteriaEvaluator none(nullptr);
    EXPECT_FALSE(none.setFields(&record.fields));
    EXPECT_FALSE(none.setVariables(&record.variables));
    EXPECT_FALSE(none.compile());
    EXPECT_EQ(none.check(true), -1);
    EXPECT_FALSE(none.setHashInfo(ExpValue()));
    CriteriaEvaluator evaluator(L"[PATHID] == 12 || [PATHID] == 13");
    EXPECT_FALSE(evaluator.setFields(nullptr));
    EXPECT_EQ(evaluator.getHashInfo(), nullptr) << "no fields yet";
    evaluator.setFields(&record.fields);
    EXPECT_EQ(evaluator.getHashInfo(), nullptr);
    ASSERT_NE(evaluator.getHashInfo(), nullptr) << "from the second call on an empty object";
    EXPECT_STREQ(evaluator.getHashInfo()->getNValueString(), L"");

    ExpValue stated;
    stated.setType(STRING);
    stated.setStringValue(std::wstring(300, L'x').c_str());
    stated.setNValueString(L"PATHNAME");
    EXPECT_TRUE(evaluator.setHashInfo(stated));
    EXPECT_EQ(evaluator.getHashInfo()->text(), std::wstring(300, L'x'));
    EXPECT_STREQ(evaluator.getHashInfo()->getNValueString(), L"PATHNAME");
}

TEST(Criteria, TellsWhatARecordNeeds) {
    SampleRecord record;
    Criteria criteria(L"limit==3 || [NAME]==\"a\" && ([BIG]>1 || [NAME]==wanted)", record);
    EXPECT_TRUE(criteria.evaluator.readsField(L"PATHID")) << "unknown until it compiles";
    EXPECT_TRUE(criteria.evaluator.usesCommands());
    ASSERT_TRUE(criteria.evaluator.compile());
    EXPECT_EQ(criteria.evaluator.fieldNames(), (Names{L"NAME", L"BIG"}));
    EXPECT_TRUE(criteria.evaluator.readsField(L"BIG"));
    for (const wchar_t* other : {L"PATHID", L"limit", static_cast<const wchar_t*>(nullptr)})
        EXPECT_FALSE(criteria.evaluator.readsField(other));
    EXPECT_FALSE(criteria.evaluator.usesCommands());

    Criteria calling(L"length(\"a\")==1", record);
    ASSERT_TRUE(calling.evaluator.compile());
    EXPECT_TRUE(calling.evaluator.usesCommands());
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
    // Another command in its place is checked against its own signature.
    LengthCommand length;
    addCmdToken(L"length", NUMERIC, STRING, &length);
    EXPECT_EQ(criteria.check(), L"fails");
}

/// Returns its argument the first time, and leaves the result unchanged afterwards.
class OnceCommand final : public UnaryCmd {
public:
    int execute(const ExpValue& argument, ExpValue& result) override {
        if (names.empty()) result = argument;
        names.emplace_back(argument.name());
        return 0;
    }
    Names names;
};

TEST(Criteria, EveryCallOfACommandSeesWhichFieldItGetsAndFillsAFreshResult) {
    SampleRecord record;
    OnceCommand once;
    Criteria criteria(L"once([NAME])", record);
    criteria.evaluator.addCmd(L"once", STRING, STRING, &once);
    criteria.evaluator.compile();
    EXPECT_EQ(criteria.check(), L"\"a.txt\"");
    EXPECT_EQ(criteria.check(), L"0");
    Criteria ofLiteral(L"once(\"x\")", record);
    ofLiteral.evaluator.addCmd(L"once", STRING, STRING, &once);
    ofLiteral.evaluator.compile();
    ofLiteral.check();
    EXPECT_EQ(once.names, (Names{L"NAME", L"NAME", L""}));
}

TEST(Tree, MergePutsBothBelowANewRootAndValuesResetToTheTwoTypes) {
    Tree tree, other;
    other.setRoot();
    EXPECT_TRUE(tree.merge(&other));
    EXPECT_EQ(other.getRoot(), nullptr);
    ExpValue value;
    value.set(STRING, 7, L"text");
    EXPECT_FALSE(resetExpValue(2, value));
    EXPECT_STREQ(value.getStringValue(), L"text");
    EXPECT_TRUE(resetExpValue(NUMERIC, value));
    EXPECT_EQ(value.getNumericValue(), 0);
}

}  // namespace
}  // namespace fscanner

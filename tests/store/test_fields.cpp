#include <gtest/gtest.h>

#include <string>

#include "fscanner/store/fields.h"

namespace fscanner {
namespace {

std::wstring text(std::size_t length) {
    std::wstring s;
    for (std::size_t i = 0; i < length; ++i) s += static_cast<wchar_t>(L'a' + i % 26);
    return s;
}

/// One field of every class, the last two without a value.
Fields sampleList() {
    Fields list;
    list.add(L"SMALL", FIELD_INT8);
    list.add(L"MEDIUM", FIELD_INT16);
    Int32Field large(L"LARGE");
    large.value(4294967295U);
    list.add(large);
    for (const wchar_t* name : {L"WORDS", L"EMPTY"}) list.add(name, FIELD_TEXT);
    list.add(L"HUGE", FIELD_INT64);
    list.as<Int8Field>(0)->value(255);
    list.as<Int16Field>(1)->value(65535);
    list.as<TextField>(3)->value(text(200).c_str());
    return list;
}

void expectSample(const Fields& list) {
    ASSERT_EQ(list.count(), 6U);
    EXPECT_EQ(list.as<Int8Field>(0)->value(), 255);
    EXPECT_EQ(list.as<Int16Field>(1)->value(), 65535);
    EXPECT_EQ(list.as<Int32Field>(2)->value(), 4294967295U);
    EXPECT_EQ(list.as<TextField>(3)->value(), text(200));
    EXPECT_STREQ(list.as<TextField>(4)->value(), L"");
    EXPECT_EQ(list.as<Int64Field>(5)->value(), 0U);
    EXPECT_STREQ(list.at(3)->name(), L"WORDS");
    for (unsigned i = 0; i < 6; ++i) EXPECT_EQ(list.at(i)->isNull(), i >= 4) << i;
}

TEST(Fields, CopiesKeepClassNameValueAndNullFlag) {
    const Fields original = sampleList();
    Fields copy(original);
    expectSample(copy);
    copy.as<TextField>(3)->value(L"changed");
    expectSample(original);
    copy = original;
    expectSample(copy);
    const Fields& same = copy;
    copy = same;
    expectSample(copy);
}

TEST(Fields, RefusesWhatCannotTakePart) {
    Fields list;
    EXPECT_FALSE(list.add(L"X", 0) || list.add(L"X", 6) || list.add(nullptr, FIELD_INT32) ||
                 list.add(Int32Field()) || list.add(TextField()));
    EXPECT_EQ(list.count(), 0U);
    EXPECT_EQ(list.size(), 0U);
}

TEST(Fields, FindsNamesExactlyAndTheFirstOfEqualOnes) {
    Fields list;
    list.add(L"NAME", FIELD_INT8);
    list.add(L"NAME", FIELD_TEXT);
    EXPECT_EQ(list.name(L"NAME"), list.at(0));
    EXPECT_EQ(list.name(L"name"), nullptr);
    EXPECT_EQ(list.name(L"NAM"), nullptr);
    EXPECT_EQ(list.name(static_cast<const wchar_t*>(nullptr)), nullptr);
    EXPECT_EQ(list.as<Int64Field>(0), nullptr) << "of another class";
    EXPECT_EQ(list.as<TextField>(0), nullptr);
    EXPECT_EQ(list.as<Int8Field>(2), nullptr) << "behind the last";
    EXPECT_EQ(fieldAs<Int8Field>(list.name(L"MISSING")), nullptr);
}

TEST(Fields, SizeSumsWhatEachClassAccountsFor) {
    EXPECT_EQ(sampleList().size(), 5U + 6U + 8U + (8U + 4U * 200U) + 12U + 8U);
}

TEST(Fields, RevisionTellsEveryStateApart) {
    Fields list;
    list.add(L"A", FIELD_INT8);
    const auto first = list.revision();
    list.as<Int8Field>(0)->value(7);
    EXPECT_EQ(list.revision(), first) << "values are not structure";
    const Fields copy = list;
    EXPECT_NE(copy.revision(), first);
    list.add(L"B", FIELD_INT8);
    EXPECT_NE(list.revision(), first);
    const auto filled = list.revision();
    const Fields moved = std::move(list);
    EXPECT_EQ(moved.revision(), filled) << "its fields are where they were";
    Fields emptied = sampleList();
    const auto before = emptied.revision();
    emptied.removeAll();
    EXPECT_NE(emptied.revision(), before);
}

TEST(Field, OnlyAChangedNameCountsAsARename) {
    Int8Field field(L"A");
    const auto before = Field::renames();
    field.setName(L"A");
    field.setName(field.name());
    EXPECT_FALSE(field.setName(nullptr));
    EXPECT_EQ(Field::renames(), before);
    EXPECT_STREQ(field.name(), L"A");
    EXPECT_TRUE(field.setName(L"B"));
    EXPECT_NE(Field::renames(), before);
}

TEST(Field, AssignmentFromANamelessFieldKeepsTheName) {
    Int32Field named(L"N"), nameless;
    nameless.value(5);
    named = nameless;
    EXPECT_STREQ(named.name(), L"N");
    EXPECT_EQ(named.value(), 5U);
    EXPECT_FALSE(named.isNull());
}

TEST(TextField, LengthsAroundTheInlineBufferReadBack) {
    TextField field(L"T");
    for (std::size_t length : {0U, 1U, 127U, 128U, 129U, 5000U, 127U, 3U}) {
        field.value(text(length).c_str());
        EXPECT_EQ(field.value(), text(length)) << length;
        EXPECT_EQ(field.view(), text(length)) << length;
        EXPECT_EQ(field.size(), 8 + 4 * length);
        const TextField copy(field);
        EXPECT_EQ(copy.view(), text(length)) << length;
        EXPECT_NE(copy.value(), field.value());
    }
}

TEST(TextField, NamelessFieldIgnoresValues) {
    TextField field;
    field.value(L"x");
    field.value(nullptr);
    EXPECT_STREQ(field.value(), L"");
    EXPECT_TRUE(field.isNull());
    field.setName(L"T");
    field.value(L"x");
    EXPECT_STREQ(field.value(), L"x");
    EXPECT_FALSE(field.isNull());
}

TEST(TextField, NullLeavesTheFlagAndSurvivesCopies) {
    TextField field(L"T");
    field.value(nullptr);
    EXPECT_TRUE(field.isNull());
    field.value(text(300).c_str());
    field.value(nullptr);
    EXPECT_FALSE(field.isNull());
    EXPECT_EQ(field.value(), nullptr);
    EXPECT_TRUE(field.view().empty());
    EXPECT_EQ(field.size(), 8U);
    TextField other(L"O");
    other.value(text(300).c_str());
    other = field;
    EXPECT_EQ(other.value(), nullptr);
    other.value(L"again");
    EXPECT_STREQ(other.value(), L"again");
}

TEST(TextField, TakesPartsOfItsOwnValueAndOfViews) {
    for (std::size_t length : {100U, 300U}) {
        TextField field(L"T");
        field.value(text(length).c_str());
        field.value(field.value());
        EXPECT_EQ(field.value(), text(length));
        field.value(field.value() + 10);
        EXPECT_EQ(field.value(), text(length).substr(10));
        field.assign(field.view().substr(1, 200));
        EXPECT_EQ(field.value(), text(length).substr(11, 200));
        field.assign(std::wstring_view(L"ab\0cd", 5));
        EXPECT_EQ(field.view(), L"ab") << "it ends at its first terminator";
    }
}

}  // namespace
}  // namespace fscanner

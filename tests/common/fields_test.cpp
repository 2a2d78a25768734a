#include <gmock/gmock.h>

#include <sstream>
#include <string>

#include "fscanner/common/fields.h"

namespace fscanner {
namespace {

std::wstring text(std::size_t length) {
    std::wstring s;
    for (std::size_t i = 0; i < length; ++i) s += static_cast<wchar_t>(L'a' + i % 26);
    return s;
}

/// Of each field its name, whether it is null, and its value.
std::wstring describe(const Fields& list) {
    std::wostringstream out;
    for (unsigned i = 0; i < list.count(); ++i) {
        out << list.at(i)->name() << list.at(i)->isNull() << ':';
        if (const auto* words = list.as<TextField>(i)) out << words->view() << ' ';
        if (const auto* number = list.as<Int8Field>(i)) out << unsigned{number->value()} << ' ';
        if (const auto* number = list.as<Int16Field>(i)) out << number->value() << ' ';
        if (const auto* number = list.as<Int32Field>(i)) out << number->value() << ' ';
        if (const auto* number = list.as<Int64Field>(i)) out << number->value() << ' ';
    }
    return out.str();
}

TEST(Fields, CopiesKeepClassNameValueAndNullFlag) {
    Fields original;
    for (const unsigned type : {FIELD_INT8, FIELD_INT16, FIELD_TEXT, FIELD_TEXT, FIELD_INT64})
        original.add((L"F" + std::to_wstring(type)).c_str(), type);
    Int32Field large(L"LARGE");
    large.value(4294967295U);
    original.add(large);
    original.as<Int8Field>(0)->value(255);
    original.as<Int16Field>(1)->value(65535);
    original.as<TextField>(2)->value(text(200).c_str());
    const std::wstring expected =
        L"F10:255 F20:65535 F50:" + text(200) + L" F51: F41:0 LARGE0:4294967295 ";
    EXPECT_EQ(original.size(), 5U + 6U + (8U + 4U * 200U) + 8U + 12U + 8U);
    Fields copy(original);
    copy.as<TextField>(2)->value(L"changed");
    EXPECT_EQ(describe(original), expected);
    copy = original;
    const Fields& same = copy;
    copy = same;
    EXPECT_EQ(describe(copy), expected);
    Int32Field named(L"N"), nameless;
    nameless.value(5);
    named = nameless;
    EXPECT_STREQ(named.name(), L"N") << "a field without a name gives none";
    EXPECT_EQ(named.value(), 5U);
    EXPECT_FALSE(named.isNull());
}

TEST(Fields, RefusesWhatCannotTakePart) {
    Fields list;
    EXPECT_THAT(std::vector({list.add(L"X", 0), list.add(L"X", 6), list.add(nullptr, FIELD_INT32),
                             list.add(Int32Field()), list.add(TextField())}),
                testing::Each(false));
    EXPECT_EQ(list.count(), 0U);
}

TEST(Fields, FindsNamesExactlyAndTheFirstOfEqualOnes) {
    Fields list;
    list.add(L"NAME", FIELD_INT8);
    list.add(L"NAME", FIELD_TEXT);
    EXPECT_EQ(list.name(L"NAME"), list.at(0));
    for (const wchar_t* other : {L"name", L"NAM", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(fieldAs<Int8Field>(list.name(other)), nullptr);
    EXPECT_EQ(list.as<TextField>(0), nullptr) << "of another class";
    EXPECT_EQ(list.as<Int8Field>(2), nullptr) << "behind the last";
}

TEST(TextField, LengthsAroundTheInlineBufferReadBack) {
    TextField field(L"T");
    for (std::size_t length : {0U, 1U, 127U, 128U, 129U, 5000U, 127U, 3U}) {
        SCOPED_TRACE(length);
        const std::wstring whole = text(length);
        field.value(whole.c_str());
        EXPECT_EQ(field.value(), whole);
        EXPECT_EQ(field.size(), 8 + 4 * length);
        TextField copy(field);
        EXPECT_NE(copy.value(), field.value());
        copy.value(copy.value());
        EXPECT_EQ(copy.view(), whole);
        copy.value(copy.value() + length / 3);
        EXPECT_EQ(copy.value(), whole.substr(length / 3)) << "a part of its own value";
        copy.assign(copy.view().substr(length / 3));
        EXPECT_EQ(copy.value(), whole.substr(length / 3 * 2));
    }
    field.assign(std::wstring_view(L"ab\0cd", 5));
    EXPECT_EQ(field.view(), L"ab") << "it ends at its first terminator";
}

TEST(TextField, NullLeavesTheFlagAndSurvivesCopies) {
    TextField field;
    field.value(L"x");
    EXPECT_STREQ(field.value(), L"") << "one without a name takes no value";
    EXPECT_FALSE(field.setName(nullptr));
    EXPECT_TRUE(field.setName(L"T"));
    field.value(nullptr);
    EXPECT_TRUE(field.isNull());
    field.value(text(300).c_str());
    TextField other(field);
    field.value(nullptr);
    EXPECT_FALSE(field.isNull());
    EXPECT_EQ(field.size(), 8U);
    other = field;
    EXPECT_EQ(other.value(), nullptr);
    EXPECT_TRUE(other.view().empty());
    other.value(L"again");
    EXPECT_STREQ(other.value(), L"again");
}

}  // namespace
}  // namespace fscanner

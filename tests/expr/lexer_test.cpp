#include <gmock/gmock.h>

#include "expr/sample_record.h"

namespace fscanner {
namespace {

/// All tokens up to the end, such as "field:PATHID rel:0 number:5 end:1".
std::string tokens(const std::wstring& text) {
    static const char* const names[] = {"number", "string", "field", "variable", "op",
                                        "paren",  "bool",   "rel",   "command",  "sign"};
    Lexer lexer;
    lexer.setExpression(text.c_str());
    std::string all;
    for (Token token = lexer.nextToken();; token = lexer.nextToken()) {
        if (token.getType() == TOKEN_END) {
            return all + "end:" + std::to_string(lexer.getLastError());
        }
        all += std::string(names[token.getType()]) + ":";
        all += token.text().empty() ? std::to_string(token.getNumericValue())
                                    : std::string(token.text().begin(), token.text().end());
        all += " ";
    }
}

TEST(Lexer, CutsTextIntoTokens) {
    static const struct {
        const wchar_t* text;
        const char* tokens;
    } cases[] = {
        {L"", "end:1"},
        {L"a == 1 ", "variable:a rel:0 number:1 end:2"},
        {L"  [PATHID]==5", "field:PATHID rel:0 number:5 end:1"},
        {L"x>=3!=!a", "variable:x rel:1 number:3 rel:5 bool:2 variable:a end:1"},
        {L"a&b&&c|||", "variable:a op:6 variable:b bool:0 variable:c bool:1 op:7 end:1"},
        {L"<=<>==!=", "rel:2 rel:4 rel:1 end:2"},
        {L"> <!=", "rel:3 rel:4 rel:5 end:1"},
        {L"+-*/(),;.", "op:0 op:2 op:4 op:5 paren:0 paren:1 sign:1 sign:2 sign:0 end:1"},
        {L"3.9 .5 1.2.3", "number:3 number:0 number:1 number:0 end:1"},
        {L"007-5", "number:7 op:2 number:5 end:1"},
        {L"2147483648 9999999999999999999999", "number:2147483647 number:2147483647 end:1"},
        {L"0x1F", "number:0 variable:x1F end:1"},
        {L"\"a\\\"\" * ? \t\"", "string:a\\ string: * ? \t end:1"},
        {L"[A1]a1B", "field:A1 variable:a1B end:1"},
    };
    for (const auto& c : cases) EXPECT_EQ(tokens(c.text), c.tokens) << std::wstring(c.text);
    for (const wchar_t* text : {L" ", L"5.", L"1..2", L"\"open", L"[ PATHID]", L"[PATHID ]",
                                L"[PATHID", L"[1A]", L"[]", L"\u00e4", L"\u0661"})
        EXPECT_EQ(tokens(text), "end:2") << std::wstring(text);
    for (const wchar_t* text : {L"a_b", L"a\tb", L"a=b", L"a\u00a0b"})
        EXPECT_EQ(tokens(text), "variable:a end:2") << std::wstring(text);
}

TEST(Lexer, CommandsComeBeforeNames) {
    clearCommands();
    const CommandListGuard guard;
    JoinCommand command;
    addCmdToken(L"type", NUMERIC, STRING, STRING, &command);
    addCmdToken(L"path", STRING, NUMERIC, STRING, &command);
    addCmdToken(L"pathname", STRING, NUMERIC, STRING, &command);
    EXPECT_EQ(tokens(L"typeX"), "command:0 variable:X end:1");
    EXPECT_EQ(tokens(L"Type"), "variable:Type end:1");
    EXPECT_EQ(tokens(L"pathname"), "command:1 variable:name end:1");
    EXPECT_EQ(tokens(L"xpath [path]"), "variable:xpath field:path end:1");
}

TEST(Lexer, LimitsOfLength) {
    static const struct {
        std::size_t longest;
        std::wstring before, after;
        wchar_t filler;
    } cases[] = {
        {255, L"", L"", L'0'},
        {32767, L"", L"", L'v'},
        {131071, L"[", L"]", L'F'},
        {131071, L"\"", L"\"", L' '},
    };
    for (const auto& c : cases) {
        const std::wstring fits = c.before + std::wstring(c.longest, c.filler) + c.after;
        const std::wstring over = c.before + std::wstring(c.longest + 1, c.filler) + c.after;
        EXPECT_TRUE(tokens(fits).ends_with(" end:1")) << c.longest << c.after;
        EXPECT_EQ(tokens(over), "end:2") << c.longest << c.after;
    }
}

TEST(Lexer, BackRestartAndNoText) {
    Lexer lexer;
    EXPECT_FALSE(lexer.restart());
    EXPECT_EQ(lexer.nextToken().getType(), TOKEN_END);
    lexer.setExpression(L"one   two");
    for (const wchar_t* token : {L"one", L"two"}) EXPECT_EQ(lexer.nextToken().text(), token);
    EXPECT_EQ(lexer.tokenPosition(), 6U);
    lexer.back();
    EXPECT_EQ(lexer.nextToken().text(), L"two");
    EXPECT_TRUE(lexer.restart());
    EXPECT_EQ(lexer.nextToken().text(), L"one");
}

TEST(Command, RegistrationRefusesWhatCannotBeCalledOrIsTaken) {
    clearCommands();
    const CommandListGuard guard;
    JoinCommand binary;
    LengthCommand unary;
    const std::wstring longest(32, L'n');
    EXPECT_TRUE(addCmdToken(longest.c_str(), STRING, NUMERIC, STRING, &binary));
    EXPECT_THAT(
        std::vector({addCmdToken((longest + L'n').c_str(), STRING, NUMERIC, STRING, &binary),
                     addCmdToken(L"", STRING, NUMERIC, STRING, &binary),  // would match everywhere
                     addCmdToken(nullptr, NUMERIC, STRING, &unary),
                     addCmdToken(L"x", NUMERIC, STRING, static_cast<UnaryCmd*>(nullptr)),
                     addCmdToken(L"x", 2, STRING, &unary), addCmdToken(L"x", NUMERIC, 2, &unary),
                     addCmdToken(L"x", NUMERIC, NUMERIC, -1, &binary)}),
        testing::Each(false));
    EXPECT_TRUE(addCmdToken(L"type", NUMERIC, STRING, STRING, &binary));
    EXPECT_FALSE(addCmdToken(L"type", STRING, STRING, STRING, &binary));
    EXPECT_FALSE(addCmdToken(L"type", NUMERIC, STRING, &unary)) << "the first type is taken";
    EXPECT_TRUE(addCmdToken(L"type", NUMERIC, STRING, NUMERIC, &binary));
    EXPECT_TRUE(findCmdToken(L"type", STRING));
    EXPECT_FALSE(findCmdToken(L"type", NUMERIC));
    EXPECT_FALSE(findCmdToken(L"typ", STRING));
    EXPECT_FALSE(findCmdToken(nullptr, STRING));
}

}  // namespace
}  // namespace fscanner

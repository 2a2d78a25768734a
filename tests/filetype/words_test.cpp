#include <vector>

#include "filetype_fixture.h"
#include "fscanner/filetype/file_program.h"

namespace fscanner {
namespace {

std::wstring joined(StringList<wchar_t>& words) {
    std::wstring text;
    for (int i = 0; i < words.size(); ++i) text += words.at(i) + std::wstring(L"|");
    return text;
}

std::wstring split(const wchar_t* text) {
    StringList<wchar_t> words;
    const bool any = FileTypeChecker::fileTypeSplitter(text, words);
    EXPECT_EQ(any, words.size() > 0);
    return joined(words);
}

TEST(TypeWords, AreWhatStandsBetweenBlanksCommasAndColons) {
    EXPECT_EQ(split(L"ELF 64-bit LSB, x86-64: stripped"), L"ELF|64-bit|LSB|x86-64|stripped|");
    EXPECT_EQ(split(L" ,: a,,b ::"), L"a|b|");
    EXPECT_EQ(split(L"a\tb"), L"a\tb|");
    EXPECT_EQ(split(L" ,:"), L"");
    EXPECT_EQ(split(L""), L"");
    EXPECT_EQ(split(nullptr), L"");
}

TEST(TypeWords, OneWordInCommonIsEnough) {
    auto file = wordList({L"ASCII", L"English", L"text"});
    std::pair<StringList<wchar_t>, bool> cases[] = {
        {wordList({L"ASCII text"}), true},
        {wordList({L"ELF", L"text"}), true},
        {wordList({L"ascii"}), false},
        {wordList({L"ASCI"}), false},
        {wordList({L",", L"text"}), true},
        {wordList({L""}), false},
        {wordList({}), false},
    };
    for (auto& [wanted, matches] : cases)
        EXPECT_EQ(FileTypeChecker::checkTypeList(file, wanted), matches)
            << (wanted.size() > 0 ? wanted.at(0) : L"no words");
}

TEST(FileOutput, GivesTheSameAnswersHoweverItArrives) {
    const std::string longest(FileOutput::longestDescription, 'x');
    const std::string bytes =
        std::string("a\nb\0\0", 5) + longest + "yz" + '\0' + "ELF" + '\0' + "cut";
    for (std::size_t piece : {std::size_t{1}, std::size_t{7}, bytes.size()}) {
        FileOutput output(5);
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            output.append(std::string_view(bytes).substr(at, piece));
        }
        EXPECT_EQ(output.descriptions(), (std::vector<std::string>{"a\nb", "", longest, "ELF"}));
        EXPECT_FALSE(output.complete());
    }
}

TEST_F(FileTypeTest, DataThatIsThereIsSearchedForTheFilesLine) {
    const std::wstring data = L"/d/ab: ELF\n/d/a:   ASCII\ttext\n/d/none:  ";
    auto wanted = wordList({L"text"});
    const auto verdict = [&](const wchar_t* name) {
        StringList<wchar_t> words;
        const bool matched = checker_.check(name, std::wstring(data).data(), words, wanted);
        return (matched ? L"1 " : L"0 ") + joined(words);
    };
    EXPECT_EQ(verdict(L"/d/a"), L"1 ASCII|text|");
    EXPECT_EQ(verdict(L"/d/ab"), L"0 ELF|");
    for (const wchar_t* name : {L"/d/b", L"/d/none", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(verdict(name), L"0 ");
    std::wstring lines = L"/d/a: text\n";
    StringList<wchar_t> words;
    EXPECT_TRUE(checker_.check(L"/d", L"a", lines.data(), words, wanted));
    EXPECT_FALSE(checker_.check(L"/d", L"b", lines.data(), words, wanted));
    write("data", "/d/a: ASCII text\n");
    write("nul", std::string("/d/a: text\n\0", 12));
    for (const char* name : {"data", "nul", "absent", ""})  // the last is the directory
        EXPECT_EQ(checker_.check(L"/d/a", toWide(path(name)).c_str(), words, wanted),
                  name == std::string("data"));
}

}  // namespace
}  // namespace fscanner

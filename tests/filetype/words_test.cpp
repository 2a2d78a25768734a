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

TEST(TypeWords, StandBetweenBlanksCommasAndColonsAndOneInCommonIsEnough) {
    EXPECT_EQ(split(L" ELF 64-bit LSB,, x86-64: a\tb:"), L"ELF|64-bit|LSB|x86-64|a\tb|");
    for (const wchar_t* none : {L" ,:", L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(split(none), L"");
    auto file = wordList({L"ASCII", L"English", L"text"});
    for (const wchar_t* words : {L"ASCII text", L"text", L"ascii", L"ASCI", L""}) {
        auto wanted = wordList({L"ELF", L",", words});
        EXPECT_EQ(FileTypeChecker::checkTypeList(file, wanted),
                  std::wcsstr(words, L"text") != nullptr)
            << words;
    }
}

TEST(FileOutput, GivesTheSameAnswersHoweverItArrives) {
    const std::string longest(FileOutput::kLongestDescription, 'x');
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
    StringList<wchar_t> words;
    write("data", "/d/a: ASCII text\n");
    for (const char* name : {"data", "absent", ""})  // the last is the directory
        EXPECT_EQ(checker_.check(L"/d/a", toWide(path(name)).c_str(), words, wanted),
                  name == std::string("data"));
}

}  // namespace
}  // namespace fscanner

#include <string>
#include <vector>

#include "filetype_fixture.h"
#include "fscanner/filetype/file_output.h"
#include "support/log_capture.h"

namespace fscanner {
namespace {

std::wstring split(const wchar_t* text) {
    StringList<wchar_t> words;
    const bool any = FileTypeChecker::fileTypeSplitter(text, words);
    EXPECT_EQ(any, words.size() > 0);
    std::wstring joined;
    for (int i = 0; i < words.size(); ++i) joined += words.at(i) + std::wstring(L"|");
    return joined;
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

class TypeData : public FileTypeTest {
protected:
    /// The verdict, then the words.
    std::wstring checkData(const wchar_t* name, std::wstring data, const wchar_t* wanted) {
        auto list = wordList({wanted});
        StringList<wchar_t> words;
        std::wstring result = checker_.check(name, data.data(), words, list) ? L"1" : L"0";
        for (int i = 0; i < words.size(); ++i) result += std::wstring(L" ") + words.at(i);
        return result;
    }
};

TEST_F(TypeData, IsSearchedForTheFilesLine) {
    const std::wstring data = L"/d/ab: ELF\n/d/a:   ASCII\ttext\n/d/none:  ";
    const LogCapture log;
    EXPECT_EQ(checkData(L"/d/a", data, L"text"), L"1 ASCII text");
    EXPECT_EQ(checkData(L"/d/a", data, L"ELF"), L"0 ASCII text");
    EXPECT_EQ(checkData(L"/d/b", data, L"ELF"), L"0");
    EXPECT_EQ(checkData(L"/d/none", data, L"ELF"), L"0");
    EXPECT_EQ(checkData(nullptr, data, L"ELF"), L"0");
    EXPECT_EQ(log.text(),
              "FileTypeChecker::check - matched is true\n"
              "FileTypeChecker::check - matched is false\n"
              "FileTypeChecker::check - pathFileName '/d/b' not found in dataBuffer!\n"
              "FileTypeChecker::check - no type info found in dataBuffer!\n"
              "FileTypeChecker::check - pathFileName is a null pointer!\n");
}

TEST_F(TypeData, ComesFromAFileOrWithTheDirectoryApart) {
    write("data", "/d/a: ASCII text\n");
    write("nul", std::string("/d/a: \0ASCII\n", 13));
    auto wanted = wordList({L"text"});
    auto verdict = [&](const std::string& name) {
        StringList<wchar_t> words;
        return checker_.check(L"/d/a", toWide(path(name)).c_str(), words, wanted);
    };
    EXPECT_TRUE(verdict("data"));
    EXPECT_FALSE(verdict("nul"));
    EXPECT_FALSE(verdict("absent"));
    EXPECT_FALSE(verdict(""));  // the directory
    std::wstring lines = L"/d/a: ASCII text\n";
    StringList<wchar_t> words;
    EXPECT_TRUE(checker_.check(L"/d", L"a", lines.data(), words, wanted));
    EXPECT_FALSE(checker_.check(L"/d", L"b", lines.data(), words, wanted));
}

}  // namespace
}  // namespace fscanner

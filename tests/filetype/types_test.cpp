// Answers of the real program about real files, and how often it is run.

#include <cstdlib>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "filetype_fixture.h"
#include "support/current_directory.h"
#include "support/environment.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

struct Sample {
    std::string content;
    std::string description;
};
// Files of different types, so that an answer given for another file shows.
const std::vector<Sample> kSamples{
    {"plain\n", "ASCII text"},
    {"#!/bin/sh\n", "POSIX shell script, ASCII text executable"},
    {"", "empty"},
    {"%PDF-1.4\n", "PDF document, version 1.4"},
    {"GIF89a\1\1\1\1", "GIF image data, version 89a, 257 x 257"},
};
const Sample& sample(std::size_t i) {
    return kSamples[i % kSamples.size()];
}

// Names that mean something to a shell, as options, in lists, in encodings or to terminals.
const std::vector<std::string> kHostileNames = [] {
    using namespace std::string_literals;
    std::istringstream list(
        "$(touch pwned)\0`touch pwned`\0\"; touch pwned; \"\0' ; touch pwned '\0|touch pwned\0"
        "&touch pwned\0>pwned\0-m\0--help\0-\0--\0-f\0a\nb\0\n\0tab\there\0 blank \0colon\0colon:\0"
        "colon: ELF\0colon:b\0caf\xe9\0\xc3\xa9\0\xff\xfe\0*\0?\0.hidden\0..double\0back\\slash\0"
        "\x1b[31m\0%s%n"s);
    std::vector<std::string> names{std::string(255, 'x')};
    for (std::string name; std::getline(list, name, '\0');) names.push_back(name);
    return names;
}();

TEST_F(FileTypeTest, HostileNamesAreNamesAndNothingElse) {
    const CurrentDirectory current(tools_.path());
    for (const char* name :
         {"plain", "$(touch pwned)", "\"`touch pwned`\"", "-m", "new\nline: ELF", "caf\xe9 "}) {
        SCOPED_TRACE(name);
        countRuns();
        const std::string directory = path(name) + "/";
        fs::create_directory(directory);
        for (std::size_t i = 0; i < kHostileNames.size(); ++i)
            writeWholeFile(directory + kHostileNames[i], sample(i).content);
        for (std::size_t i = 0; i < kHostileNames.size(); ++i) {
            SCOPED_TRACE(kHostileNames[i]);
            const std::string file = directory + kHostileNames[i], &type = sample(i).description;
            for (Method method : {&FileTypeChecker::getFileTypeEx, &FileTypeChecker::getFileType})
                EXPECT_EQ(typeOfPath(file, method), type);
        }
        EXPECT_EQ(runs(), 1 + std::ssize(kHostileNames));
        std::set<std::string> left;
        for (const auto& entry : fs::directory_iterator(directory))
            left.insert(entry.path().filename());
        EXPECT_EQ(left, std::set(kHostileNames.begin(), kHostileNames.end()));
        EXPECT_EQ(left.size(), 31U);
    }
    EXPECT_FALSE(fs::exists(path("pwned"))) << "something was executed";
    EXPECT_EQ(std::distance(fs::directory_iterator(tools_.path()), {}), 2)
        << "something was executed";
}

TEST_F(FileTypeTest, OneRunServesADirectoryAndEachAnswerOneQuestion) {
    countRuns();
    for (const char* name : {"a", "b", "absent: ELF"}) write(name);
    fs::create_directory(path("sub"));
    // The answers to "b" wait: a directory is only used when it is asked for.
    for (const auto& [name, type, after] : {std::tuple("a", "ASCII text", 1),
                                            {"b", "ASCII text", 1},
                                            {"a", "ASCII text", 2},
                                            {"sub", "directory", 3},
                                            {"b", "ASCII text", 3},
                                            {"absent", "unknown", 3},
                                            {"", "unknown", 3}}) {
        EXPECT_EQ(typeOf(name), type) << name;
        EXPECT_EQ(runs(), after) << name;
    }
}

// Another size, inode, time or kind, no file, or another directory of the name.
TEST_F(FileTypeTest, AnAnswerWaitsForTheFileThatItWasGivenFor) {
    const auto shell = [this](const std::string& command) {
        const std::string at = "d='" + files_.path().string() + "'; cd \"$d\"; ";
        EXPECT_EQ(std::system((at + command).c_str()), 0) << command;
    };
    for (const auto& [change, now] :
         {std::pair("echo some text > b", "ASCII text"),
          {"printf 'text text' > c; mv c b", "ASCII text, with no line terminators"},
          {"printf 'text\\ntext' > b", "ASCII text"},
          {"ln -sf a b", "symbolic link to a"},
          {"rm b", "unknown"},
          {"mv $d $d.moved; ln -s $d.moved/other $d", "unknown"}}) {
        shell("rm -f b; mkdir -p other; echo outside > other/b");
        write("a");
        write("b", "%PDF-1.4\n");
        EXPECT_EQ(typeOf("a"), "ASCII text");
        // The clock of the file system goes in steps.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        shell(change);
        EXPECT_EQ(typeOf("b"), now) << change;
        if (fs::is_symlink(files_.path())) shell("rm $d; mv $d.moved $d");
    }
}

// A character that the locale lacks names the same file as its bytes do.
TEST_F(FileTypeTest, AWaitingAnswerIsFoundHoweverItsNameIsWritten) {
    countRuns();
    write("a");
    write("\xc3\xa9", "%PDF-1.4\n");
    EXPECT_EQ(typeOf("a"), "ASCII text");
    auto pdf = wordList({L"PDF"});
    EXPECT_TRUE(checker_.check(files_.path().wstring().c_str(), L"\u00e9", pdf));
    EXPECT_EQ(runs(), 1);
}

TEST_F(FileTypeTest, ChecksWordsOfTheDescription) {
    write("a.txt");
    fs::create_symlink("a.txt", path("link"));
    auto text = wordList({L"ASCII text"}), target = wordList({L"a.txt"}), anything = wordList({});
    auto directory = wordList({L"directory"});
    const auto check = [&](const wchar_t* name, StringList<wchar_t>& wanted) {
        return checker_.check(files_.path().wstring().c_str(), name, wanted);
    };
    EXPECT_TRUE(check(L"a.txt", text));
    EXPECT_TRUE(check(L"link", target)) << "the target's name is a word as well";
    EXPECT_FALSE(check(L"link", text));
    EXPECT_TRUE(check(L"absent", anything));
    EXPECT_FALSE(check(nullptr, anything));
    EXPECT_TRUE(checker_.check(nullptr, anything));
    EXPECT_FALSE(checker_.check(nullptr, text));
    EXPECT_TRUE(checker_.check(L"/", L"etc", directory)) << "with one slash";
}

TEST_F(FileTypeTest, APathOf1024CharactersHasNoType) {
    std::string deep = files_.path();
    while (deep.size() < 900) deep += "/" + std::string(100, 'd');
    fs::create_directories(deep);
    for (std::size_t length : {1023U, 1024U}) {
        const std::string file = deep + "/" + std::string(length - deep.size() - 1, 'f');
        writeWholeFile(file, "text\n");
        EXPECT_EQ(typeOfPath(file, &FileTypeChecker::getFileTypeEx),
                  length == 1023 ? "ASCII text" : "unknown");
    }
}

TEST_F(FileTypeTest, ALinkIsNotFollowedToTheDirectory) {
    fs::create_directory(path("real"));
    write("real/a");
    fs::create_directory_symlink("real", path("link"));
    fs::create_directory(path("real/below"));
    write("real/below/a");
    EXPECT_EQ(typeOf("link/a"), "unknown");
    EXPECT_EQ(typeOf("link/below/a"), "unknown");
    EXPECT_EQ(typeOf("real/a"), "ASCII text");
    EXPECT_EQ(typeOf("real/below/a"), "ASCII text");
}

TEST_F(FileTypeTest, TheHostsEnvironmentChangesNoAnswer) {
    write(".magic", "0 string text EVIL\n");
    write("a");
    fs::create_symlink("a", path("link"));
    EnvironmentVariable magic("MAGIC"), home("HOME"), posix("POSIXLY_CORRECT");
    magic.set(path(".magic"));
    home.set(files_.path());
    posix.set("1");
    EXPECT_EQ(typeOf("a"), "ASCII text");
    EXPECT_EQ(typeOf("link"), "symbolic link to a");
}

TEST_F(FileTypeTest, SeveralFilesTakeOneRun) {
    countRuns();
    write("a");
    write("-m", "%PDF-1.4\n");
    auto names = wordList({L"a", L"absent", L"-m"}), text = wordList({L"text", L"PDF"});
    std::vector<bool> matched;
    EXPECT_TRUE(checker_.check(files_.path().wstring().c_str(), names, text, matched));
    EXPECT_EQ(matched, (std::vector<bool>{true, false, true}));
    EXPECT_FALSE(checker_.check(L"/absent", names, text, matched));
    EXPECT_EQ(matched, std::vector<bool>(3, false));
    EXPECT_EQ(runs(), 1);
}

TEST_F(FileTypeTest, ListHoldsThePathsOfAllButDirectories) {
    const CurrentDirectory current(tools_.path());
    for (const char* name : {"a", ".hidden", "new\nline"}) write(name);
    fs::create_directory(path("sub"));
    fs::create_directory_symlink("sub", path("link"));
    EXPECT_EQ(makeListFile(files_.path().c_str(), "list"), 3);
    const std::string list = readWholeFile("list");
    for (const char* name : {"a", ".hidden", "link"})
        EXPECT_NE(list.find(path(name) + "\n"), std::string::npos) << name;
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 3);
    EXPECT_EQ(fs::status("list").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(typeOf("new\nline", &FileTypeChecker::getFileTypeEx_2), "unknown") << "not listed";
    EXPECT_EQ(typeOf("a", &FileTypeChecker::getFileTypeEx_2), "ASCII text");
    EXPECT_EQ(makeListFile("/absent", "other"), -1);
    EXPECT_FALSE(fs::exists("other"));
}

}  // namespace
}  // namespace fscanner

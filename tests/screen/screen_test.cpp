// What is typed, what is listed, and what is shown of a file; a test of its own drives the whole in
// a terminal.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "fscan/screen/file_view.h"
#include "fscan/screen/result_list.h"
#include "fscan/screen/typed_query.h"
#include "support/temporary_directory.h"

namespace fscan {
namespace {

using testing::ElementsAre;
using Words = std::vector<std::string>;

TEST(TypedQuery, BecomesOptions) {
    const struct {
        const char* text;
        Words arguments;
        Words parts;
    } table[] = {
        {"", {}, {}},
        {"  ", {}, {}},
        {"conf", {"--path=*conf*", "-i"}, {}},
        {"Conf", {"--path=*Conf*"}, {}},
        {"lib config", {"--path=*config*", "-i"}, {"lib"}},
        {"Li config", {"--path=*config*", "-i"}, {"Li"}},
        {"\"two words\"", {"--path=*two words*", "-i"}, {}},
        {"\"still open", {"--path=*still open*", "-i"}, {}},
        {"\"*\"", {"--path=*\\**", "-i"}, {}},
        {"*.h", {"--name=*.h", "-i"}, {}},
        {"*.H", {"--name=*.H"}, {}},
        {"size>10M", {"--larger=10M"}, {}},
        {"size<4k", {"--smaller=4k"}, {}},
        {"size:1k..2M", {"--size=1k..2M"}, {}},
        {"size>", {}, {}},
        {"type:ELF newer:2d", {"--type=ELF", "--newer=2d"}, {}},
        {"ext:c++ dir:src", {"--name=*.c++", "--path=*src*/*", "-i"}, {}},
        {"!old a", {"--not", "--path=*old*", "--path=*a*", "-i"}, {}},
        {"!size>1k", {"--not", "--larger=1k"}, {}},
        {"!", {}, {}},
        {"empty:", {"--empty"}, {}},
        {"a [SIZE] > 10 && [SIZE] < 20",
         {"--where=[SIZE] > 10 && [SIZE] < 20", "--path=*a*", "-i"},
         {}},
        {"-rf *-", {"--name=*-", "--path=*-rf*", "-i"}, {}},
        {"a:b", {"--path=*a:b*", "-i"}, {}},
    };
    for (const auto& row : table) {
        TypedError error;
        const std::optional<TypedQuery> query = readTyped(row.text, error);
        ASSERT_TRUE(query) << row.text;
        EXPECT_EQ(query->arguments, row.arguments) << row.text;
        EXPECT_EQ(query->parts, row.parts) << row.text;
    }
    TypedError error;
    EXPECT_FALSE(readTyped("ok type:a/b", error));
    EXPECT_EQ(error.at, 3U);
}

TEST(TypedQuery, AdmitsPathsWithAllParts) {
    const TypedQuery query{{}, {}, "", {"lib", "\xC3\xA9", "Conf"}};
    EXPECT_TRUE(query.admits("/usr/LIB/\xC3\xA9/Conf"));
    EXPECT_FALSE(query.admits("/usr/lib/\xC3\xA9/conf"));
    EXPECT_FALSE(query.admits("/usr/\xC3\xA9/Conf"));
}

TEST(TypedQuery, NarrowsWhereEachWordIsImplied) {
    const struct {
        const char* before;
        const char* after;
        bool narrows;
    } table[] = {
        {"", "a", false},  // its answer has every case
        {"conf", "conf", true},
        {"conf", "config", true},
        {"conf", "deconf", true},
        {"conf", "con", false},
        {"conf", "Conf", false},  // is searched for in its case
        {"Conf", "aConf", true},
        {"conf l", "conf lib", true},
        {"conf l", "conf b", false},
        {"lib", "lib library", true},
        {"*.h conf", "*.h config", true},
        {"*.h conf", "*.hh conf", false},
        {"size>1k conf", "size>10k conf", false},
        {"conf", "conf !old", false},
        {"conf", "conf\xC3\xA9", false},  // whose cases only a search knows
    };
    for (const auto& row : table) {
        TypedError error;
        const TypedQuery before = *readTyped(row.before, error);
        EXPECT_EQ(readTyped(row.after, error)->narrows(before), row.narrows)
            << row.before << " -> " << row.after;
    }
    TypedError error;
    const TypedQuery query = *readTyped("lib Conf", error);
    EXPECT_TRUE(query.admitsAll("/LIB/Conf"));
    EXPECT_FALSE(query.admitsAll("/LIB/conf"));
    EXPECT_FALSE(query.admitsAll("/usr/Conf"));
}

TEST(ResultList, FollowsTheCursorAndKeepsMarks) {
    ResultList list;
    list.setHeight(3);
    list.move(1);
    list.toggleMark();
    EXPECT_EQ(list.current(), nullptr);
    for (char c = 'a'; c < 'k'; ++c) list.add(std::string(1, c));
    list.move(4);
    EXPECT_EQ(list.cursor(), 4U);
    EXPECT_EQ(list.first(), 2U);
    list.toggleMark();
    list.move(-100);
    EXPECT_EQ(list.first(), 0U);
    list.move(100);
    EXPECT_EQ(*list.current(), "j");
    list.setHeight(20);
    EXPECT_EQ(list.cursor(), 9U);
    list.clear();
    EXPECT_TRUE(list.isMarked("e"));
    for (std::size_t i = 0; i < ResultList::kMost + 5; ++i) list.add("x");
    EXPECT_EQ(list.found(), ResultList::kMost + 5);
    EXPECT_EQ(list.paths().size(), ResultList::kMost);
}

TEST(FileView, ShowsTextAndWaitsForNothing) {
    const fscanner::TemporaryDirectory place;
    fscanner::writeWholeFile(place / "text", "one\ttab\r\n\x1B[31mtwo\nthree\n");
    fscanner::writeWholeFile(place / "binary", std::string("a\0b", 3));
    fscanner::writeWholeFile(place / "empty", "");
    ASSERT_EQ(::mkfifo((place / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("text", place / "link");
    EXPECT_THAT(previewOf(place / "text", 2), ElementsAre("one tab", "\\x1B[31mtwo"));
    EXPECT_THAT(previewOf(place / "binary", 2), ElementsAre("(no text)"));
    EXPECT_THAT(previewOf(place / "empty", 2), ElementsAre("(empty)"));
    EXPECT_THAT(previewOf(place / "pipe", 2), ElementsAre("(no regular file)"));
    EXPECT_THAT(previewOf(place / "link", 2), ElementsAre("(no regular file)"));
    EXPECT_THAT(previewOf(place / "none", 2), ElementsAre("(No such file or directory)"));
    EXPECT_THAT(previewOf(place.path(), 2), ElementsAre("(a directory)"));
    EXPECT_EQ(describe(place / "text").size, "24");
    EXPECT_EQ(describe(place / "none").kind, "?");
}

}  // namespace
}  // namespace fscan

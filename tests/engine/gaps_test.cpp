// The parts of a query that stay unanswered, and how a host hears of them: paths that lead to no
// drive, and types without a program that finds them. Tested in every way of asking.

#include <map>

#include "discovery/fixtures.h"
#include "engine/cache_user.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/fs/fs_direct.h"
#include "support/listener.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Answer {
    int status = 0;
    std::vector<std::string> files;
    std::vector<std::string> noDrive;
    std::vector<std::string> undecided;
};

/// The answers by the way of asking.
std::map<std::string, Answer> askedInEveryWay(const FsQuery& query) {
    const CacheUser plain, kept, monitored(false, true);
    const auto ask = [&](const auto& run) {
        CollectingWriter writer;
        const Listener heard;
        const int status = run(writer);
        return Answer{status, writer.sorted(), heard.skippedFor(FsSkipReason::noDrive),
                      heard.undecidedPaths};
    };
    std::map<std::string, Answer> answers;
    answers["direct"] = ask([&](auto& to) { return fsScanQuery(to, query, kMinute); });
    for (const char* age : {"new cache", "old cache"})
        answers[age] = ask([&](auto& to) { return plain.query(to, query); });
    for (const char* turn : {"Ex", "Ex again"})
        answers[turn] = ask([&](auto& to) { return kept.query(to, query, kDay, kMinute, true); });
    answers["monitored"] = ask([&](auto& to) { return monitored.query(to, query); });
    return answers;
}

class Gaps : public testing::Test {
protected:
    Gaps() { tree_.file("f"); }
    ~Gaps() override { fileProgram() = saved_; }

    const PastedMountTable table_{"a / ext4\n"};
    const FileProgram saved_ = fileProgram();
    TempTree tree_;
};

TEST_F(Gaps, PathsThatLeadToNoDriveAreToldAndHaveAStatus) {
    const std::wstring good = tree_.wide(), remote = L"$remote::" + good, odd = L"$lokal::" + good;
    const std::vector<std::string> file = {tree_.path("f")};
    constexpr int noDrive = FS_CACHE_NO_DRIVE;
    const struct {
        const char* what;
        std::vector<std::wstring> include, exclude;
        int status;
        std::vector<std::string> files, noDrive;
    } cases[] = {
        {"a colon", {good, L"/a:b"}, {}, noDrive, file, {"/a:b"}},
        {"a colon alone", {L"/a:b/c"}, {}, noDrive, {}, {"/a:b/c"}},
        {"a colon behind a drive", {L"*:/a:b", good}, {}, 0, file, {}},
        {"an unknown group", {L"$lokal::/a", good}, {}, noDrive, file, {"$lokal::/a"}},
        {"a group without drives", {remote}, {}, noDrive, {}, {toMultibyte(remote)}},
        {"one of both groups", {remote, good}, {}, 0, file, {toMultibyte(remote)}},
        {"the group of no drives", {L"$other::/x", good}, {}, 0, file, {"$other::/x"}},
        {"an empty path", {L""}, {}, noDrive, {}, {}},
        {"no path", {}, {}, 0, {}, {}},
        {"an exclusion of no known group", {good}, {odd}, noDrive, file, {toMultibyte(odd)}},
        {"an exclusion elsewhere", {good}, {remote}, 0, file, {}},
    };
    for (const auto& c : cases) {
        FsQuery query;
        for (const std::wstring& path : c.include) query.addIncludePath(path.c_str(), true);
        for (const std::wstring& path : c.exclude) query.addExcludePath(path.c_str(), true);
        for (const auto& [way, answer] : askedInEveryWay(query)) {
            SCOPED_TRACE(std::string(c.what) + ", " + way);
            EXPECT_EQ(answer.status, c.status);
            EXPECT_EQ(answer.files, c.files);
            EXPECT_EQ(answer.noDrive, c.noDrive);
        }
    }
}

TEST_F(Gaps, PatternsAreLeftOutOnEveryDriveOfTheirGroup) {
    tree_.file("skip/a");
    tree_.file("net/skip/b");
    const PastedMountTable table("a / ext4\nb " + tree_.path("net") + " nfs\n");
    const std::string a = tree_.path("skip/a"), b = tree_.path("net/skip/b"), f = tree_.path("f");
    for (const auto& [group, files] :
         {std::pair<std::wstring, std::vector<std::string>>{L"$all", {f}},
          {L"$local", {f, b}},
          {L"$remote", {f, a}}}) {
        FsQuery query;
        query.addIncludePath((L"$all::" + tree_.wide()).c_str(), true);
        query.addExcludePath((group + L"::*:/*/skip").c_str(), true);
        for (const auto& [way, answer] : askedInEveryWay(query)) {
            EXPECT_EQ(answer.status, 0) << way;
            EXPECT_THAT(answer.files, testing::UnorderedElementsAreArray(files)) << way;
        }
    }
}

TEST_F(Gaps, WithoutTheFileProgramATypeIsNeitherThisNorAnother) {
    const std::wstring type = L"type(path([PATHID], [FILENAME]), \"empty\")";
    FsQuery query;
    query.addIncludePath(tree_.wide().c_str(), true);
    const auto ask = [&](const std::wstring& criteria) {
        query.setQuery(criteria.c_str());
        return askedInEveryWay(query);
    };
    for (const char* program : {"", "/nonexistent/file"}) {
        fileProgram().path = program;
        for (const std::wstring& criteria : {type, type + L" == 0"}) {
            for (const auto& [way, answer] : ask(criteria)) {
                EXPECT_EQ(answer.status, FS_CACHE_NO_FILE_PROGRAM) << way << program;
                EXPECT_THAT(answer.files, IsEmpty()) << way;
                EXPECT_THAT(answer.undecided, ElementsAre(tree_.path("f"))) << way;
            }
        }
        // Where no type is asked for, no type is missed.
        for (const auto& [way, answer] : ask(L"[SIZE] == 7 && " + type + L" != 0"))
            EXPECT_EQ(answer.status, 0) << way;
    }
    fileProgram() = saved_;
    for (const auto& [way, answer] : ask(type)) {
        EXPECT_EQ(answer.status, 0) << way;
        EXPECT_THAT(answer.files, ElementsAre(tree_.path("f"))) << way;
    }
}

}  // namespace
}  // namespace fscanner

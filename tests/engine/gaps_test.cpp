// The parts of a query that stay unanswered, and how a host hears of them: paths that lead to no
// drive, and types without a program that finds them. Tested in every way of asking.

#include "discovery/fixtures.h"
#include "engine/every_way.h"
#include "fscanner/filetype/file_program.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Names = std::vector<std::string>;

class Gaps : public testing::Test {
protected:
    Gaps() { tree_.file("f"); }
    ~Gaps() override { fileProgram() = saved_; }

    /// Calls `check(status, files, listener)` for each way.
    template <typename Check>
    void inEveryWay(const FsQuery& query, Check check) const {
        const CacheUser shared;
        askInEveryWay(query, shared,
                      [&](int status, const CollectingWriter& writer, const Listener& heard) {
                          check(status, writer.sorted(), heard);
                      });
    }

    const PastedMountTable table_{"a / ext4\n"};
    const FileProgram saved_ = fileProgram();
    TempTree tree_;
};

TEST_F(Gaps, PathsThatLeadToNoDriveAreToldAndHaveAStatus) {
    const std::wstring good = tree_.wide(), remote = L"$remote::" + good, odd = L"$lokal::" + good;
    const Names file = {tree_.path("f")};
    constexpr int noDrive = FS_CACHE_NO_DRIVE;
    const struct {
        const char* what;
        std::vector<std::wstring> include, exclude;
        int status;
        Names files, noDrive;
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
        SCOPED_TRACE(c.what);
        inEveryWay(query, [&](int status, const Names& files, const Listener& heard) {
            EXPECT_EQ(status, c.status);
            EXPECT_EQ(files, c.files);
            EXPECT_EQ(heard.skippedFor(FsSkipReason::noDrive), c.noDrive);
        });
    }
}

TEST_F(Gaps, PatternsAreLeftOutOnEveryDriveOfTheirGroup) {
    tree_.file("skip/a");
    tree_.file("net/skip/b");
    const PastedMountTable table("a / ext4\nb " + tree_.path("net") + " nfs\n");
    const std::string a = tree_.path("skip/a"), b = tree_.path("net/skip/b"), f = tree_.path("f");
    for (const auto& [group, files] : {std::pair<std::wstring, Names>{L"$all", {f}},
                                       {L"$local", {f, b}},
                                       {L"$remote", {f, a}}}) {
        FsQuery query;
        query.addIncludePath((L"$all::" + tree_.wide()).c_str(), true);
        query.addExcludePath((group + L"::*:/*/skip").c_str(), true);
        inEveryWay(query, [&, right = files](int status, const Names& found, auto&) {
            EXPECT_EQ(status, 0);
            EXPECT_THAT(found, testing::UnorderedElementsAreArray(right));
        });
    }
}

TEST_F(Gaps, WithoutTheFileProgramATypeIsNeitherThisNorAnother) {
    const std::wstring type = L"type(path([PATHID], [FILENAME]), \"empty\")";
    FsQuery query;
    query.addIncludePath(tree_.wide().c_str(), true);
    const auto expect = [&](const std::wstring& criteria, int code, const Names& right,
                            const Names& undecided) {
        query.setQuery(criteria.c_str());
        inEveryWay(query, [&](int status, const Names& files, const Listener& heard) {
            EXPECT_EQ(status, code);
            EXPECT_EQ(files, right);
            EXPECT_EQ(heard.undecidedPaths, undecided);
        });
    };
    const Names file = {tree_.path("f")};
    for (const char* program : {"", "/nonexistent/file"}) {
        SCOPED_TRACE(program);
        fileProgram().path = program;
        for (const std::wstring& criteria : {type, type + L" == 0"})
            expect(criteria, FS_CACHE_NO_FILE_PROGRAM, {}, file);
        // Where no type is asked for, none is missed.
        expect(L"[SIZE] == 7 && " + type + L" != 0", 0, {}, {});
    }
    fileProgram() = saved_;
    expect(type, 0, file, {});
}

}  // namespace
}  // namespace fscanner

#include <dirent.h>
#include <gmock/gmock.h>

#include "engine/temp_tree.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/walk.h"
#include "support/listener.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const DriveInfo kDrive(L"/:", DRIVE_LOCAL, L"ext4");

struct Scan {
    std::wstring path;
    bool recursive = true;
    const wchar_t* criteria = nullptr;
    std::vector<PathInfo> include = {};
    std::vector<PathInfo> exclude = {};
    unsigned timeout = 100000;
    DriveInfo drive = kDrive;

    int into(CollectingWriter& writer) const {
        FileProcessor processor(criteria, true);
        const PathDrive pair{PathInfo(path.c_str(), recursive), drive};
        return fs_build(writer, processor, pair, include, exclude, true, timeout);
    }
};

TEST(DirectScan, WritesCompleteRecordsInTheReverseOrderOfTheDirectory) {
    TempTree tree;
    for (int i = 0; i < 40; ++i) tree.file("f" + std::to_string(i * 7919), 123);
    std::vector<std::string> order;
    DIR* directory = opendir(tree.path().c_str());
    while (const dirent* entry = readdir(directory))
        if (entry->d_name[0] != '.') order.push_back(tree.path(entry->d_name));
    closedir(directory);
    std::reverse(order.begin(), order.end());
    CollectingWriter writer;
    Scan{tree.wide()}.into(writer);
    EXPECT_THAT(writer.paths, ElementsAreArray(order));
    for (const FsFileInfo& record : writer.records) {
        EXPECT_EQ(record.knownMask(), 0x3FFU);
        EXPECT_EQ(record.getSize(), 123U);
        EXPECT_EQ(record.getAttr() & FS_ATTR_REGULAR_FILE, FS_ATTR_REGULAR_FILE);
        EXPECT_EQ(std::wstring(record.getPath()), tree.wide() + L"/");
    }
}

TEST(DirectScan, FindsWithinItsBounds) {
    TempTree tree;
    tree.file("top", 2000);
    tree.file("a/b/y", 4000);
    tree.file("ab/w");
    tree.link("../a", "ab/link");
    tree.link("nowhere", "ab/dangling");
    const std::wstring root = tree.wide();
    const PathInfo pattern((root + L"/*b").c_str(), true);
    const PathInfo below(tree.wide("a/b").c_str(), true);
    const struct {
        const char* what;
        Scan scan;
        std::vector<std::string> names;
    } cases[] = {
        // Links are listed and never followed.
        {"everything", {root}, {"a/b/y", "ab/dangling", "ab/link", "ab/w", "top"}},
        {"a link as root", {root + L"/ab/link"}, {}},
        {"exclusion by pattern", {.path = root, .exclude = {pattern}}, {"top"}},
        {"inclusion", {.path = root, .include = {below}}, {"a/b/y"}},
        {"missing root", {root + L"/nothing"}, {}},
        {"a file as root", {root + L"/top"}, {}},
        {"placeholder type of the distributed file system",
         {.path = root, .recursive = false, .drive = DriveInfo(L"/:", DRIVE_LOCAL, L"dfs")},
         {"top"}},
        {"the same, remote", {.path = root, .drive = DriveInfo(L"/:", DRIVE_REMOTE, L"dfs")}, {}},
        // A direct scan takes only the value 1 for a match, not the 2 of the other file.
        {"a number", {.path = root, .criteria = L"[SIZE]/2000"}, {"top"}},
    };
    for (const auto& [what, scan, names] : cases) {
        std::vector<std::string> expected;
        for (const std::string& name : names) expected.push_back(tree.path(name));
        CollectingWriter writer;
        EXPECT_EQ(scan.into(writer), 0);
        EXPECT_EQ(writer.sorted(), expected) << what;
    }
}

// A branch deeper than the number of open descriptors, with siblings that a file system lists
// before it and others that it lists behind it, in whatever order it lists.
void plantDeepBranch(const TempTree& tree, const std::string& root, std::size_t size = 0) {
    for (const auto& names : {std::vector{"a", "side/s"}, {"m", "tail/t", "z"}}) {
        std::string path = root;
        for (int i = 0; i < 40; ++i, path += "deep/")
            for (const char* name : names) tree.file(path + name, size);
        tree.file(path + "end", size);
    }
}

// When the walk is at its deepest, the way back becomes another user's tree, or a link to it.
struct Exchange : CollectingWriter {
    Exchange(const TempTree& tree, bool byLink) : tree_(tree), byLink_(byLink) {}
    using CollectingWriter::addRecord;
    int addRecord(const FsFileInfo& record) override {
        if (record.getName() == std::wstring(L"end")) {
            std::filesystem::rename(tree_.path("root/deep"), tree_.path("away"));
            if (byLink_) tree_.link("../victim/deep", "root/deep");
            if (!byLink_)
                std::filesystem::rename(tree_.path("victim/deep"), tree_.path("root/deep"));
        }
        return CollectingWriter::addRecord(record);
    }

private:
    const TempTree& tree_;
    bool byLink_;
};

// The walk continues in its directory, wherever that was moved.
TEST(DirectScan, ADirectoryExchangedBehindTheWalkLeadsNowhere) {
    for (const bool byLink : {true, false}) {
        TempTree tree;
        plantDeepBranch(tree, "root/");
        plantDeepBranch(tree, "victim/", 777);
        Exchange writer(tree, byLink);
        const Listener heard;
        EXPECT_EQ(Scan{tree.wide("root")}.into(writer), 0);
        EXPECT_TRUE(std::filesystem::exists(tree.path("away")));
        for (const FsFileInfo& record : writer.records) EXPECT_NE(record.getSize(), 777U);
        EXPECT_EQ(writer.records.size(), 40U * 5 + 1);
        EXPECT_THAT(heard.skips, IsEmpty());
    }
}

TEST(DirectScan, EndsInTimeAndTellsOfExclusions) {
    TempTree tree;
    tree.file("d/a");
    tree.file("out/a");
    // A limit beyond 31 bits is very long, not negative.
    for (const auto& [timeout, status] : {std::pair(0U, 2), {0xFFFFFFFFU, 0}}) {
        const Listener heard;
        CollectingWriter writer;
        Scan scan{.path = tree.wide(), .exclude = {PathInfo(tree.wide("out").c_str(), true)}};
        scan.timeout = timeout;
        EXPECT_EQ(scan.into(writer), status);
        EXPECT_EQ(writer.paths.size(), status == 0 ? 1U : 0U);
        if (status != 0) continue;
        EXPECT_THAT(heard.skippedFor(FsSkipReason::excluded), ElementsAre(tree.path("out")));
        EXPECT_EQ(heard.skips.size(), 1U);
    }
}

}  // namespace
}  // namespace fscanner

#include <dirent.h>
#include <gmock/gmock.h>

#include "engine/temp_tree.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/walk.h"
#include "support/listener.h"

namespace fscanner {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

int scan(CollectingWriter& writer, const std::wstring& path, const wchar_t* criteria = nullptr,
         const DriveInfo& drive = DriveInfo(L"/:", DRIVE_LOCAL, L"ext4")) {
    FileProcessor processor(criteria, true);
    const PathDrive pair{PathInfo(path.c_str(), true), drive};
    return fs_build(writer, processor, pair, {}, {}, true, kMinute);
}

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
    scan(writer, tree.wide());
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
    tree.directory("ab");
    tree.link("../a", "ab/link");
    const struct {
        const char* what;
        const char* root;
        std::vector<std::string> names;
        const wchar_t* criteria = nullptr;
        DriveInfo drive = DriveInfo(L"/:", DRIVE_LOCAL, L"ext4");
    } cases[] = {
        // Links are listed and never followed.
        {"everything", "", {"a/b/y", "ab/link", "top"}},
        {"a link as root", "ab/link", {}},
        {"missing root", "nothing", {}},
        {"a file as root", "top", {}},
        // A direct scan wants exactly 1: not the 2 of the other.
        {"a number", "", {"top"}, L"[SIZE]/2000"},
        {"the distributed file system", "a", {"a/b/y"}, nullptr, {L"/:", DRIVE_LOCAL, L"dfs"}},
        {"the same, remote", "a", {}, nullptr, {L"/:", DRIVE_REMOTE, L"dfs"}},
    };
    for (const auto& [what, root, names, criteria, drive] : cases) {
        std::vector<std::string> expected;
        for (const std::string& name : names) expected.push_back(tree.path(name));
        CollectingWriter writer;
        EXPECT_EQ(scan(writer, tree.wide(root), criteria, drive), 0);
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
        EXPECT_EQ(scan(writer, tree.wide("root")), 0);
        EXPECT_TRUE(std::filesystem::exists(tree.path("away")));
        for (const FsFileInfo& record : writer.records) EXPECT_NE(record.getSize(), 777U);
        EXPECT_EQ(writer.records.size(), 40U * 5 + 1);
        EXPECT_THAT(heard.skips, IsEmpty());
    }
}

}  // namespace
}  // namespace fscanner

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "engine/temp_tree.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/walk.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "support/child_process.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

const DriveInfo kDrive(L"/:", DRIVE_LOCAL, L"ext4");

struct Scan {
    std::wstring path;
    bool recursive = true;
    const wchar_t* criteria = nullptr;
    bool caseSensitive = true;
    std::vector<PathInfo> include = {};
    std::vector<PathInfo> exclude = {};
    unsigned timeout = 100000;
    DriveInfo drive = kDrive;

    int into(CollectingWriter& writer) const {
        FileProcessor processor(criteria, caseSensitive);
        const PathDrive pair{PathInfo(path.c_str(), recursive), drive};
        return fs_build(writer, processor, pair, include, exclude, caseSensitive, timeout);
    }
    std::vector<std::string> found() const {
        CollectingWriter writer;
        EXPECT_EQ(into(writer), WALK_FINISHED);
        return writer.sorted();
    }
};

// What a plain walk of the standard library finds.
std::vector<std::string> reference(const std::string& root) {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.is_symlink() || !entry.is_directory()) paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
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
    Scan{tree.wide()}.into(writer);
    EXPECT_THAT(writer.paths, ElementsAreArray(order));
    for (const FsFileInfo& record : writer.records) {
        EXPECT_EQ(record.knownMask(), 0x3FFU);
        EXPECT_EQ(record.getSize(), 123U);
        EXPECT_EQ(record.getAttr() & FS_ATTR_REGULAR_FILE, FS_ATTR_REGULAR_FILE);
        EXPECT_EQ(std::wstring(record.getPath()), tree.wide() + L"/");
    }
}

TEST(DirectScan, CriteriaDecide) {
    TempTree tree;
    tree.file("a.h", 10);
    tree.file("b.H", 2000);
    tree.file("c.c", 3000);
    tree.file("d/e.h", 4000);
    tree.link("a.h", "l.h");
    struct Case {
        const wchar_t* criteria;
        bool caseSensitive;
        std::vector<std::string> names;
    };
    const Case cases[] = {
        {L"", true, {"a.h", "b.H", "c.c", "d/e.h", "l.h"}},
        {L"[FILENAME]==\"*.h\"", true, {"a.h", "d/e.h", "l.h"}},
        {L"[FILENAME]==\"*.h\"", false, {"a.h", "b.H", "d/e.h", "l.h"}},
        {L"[SIZE]>=2000 && [FILENAME]!=\"c*\"", true, {"b.H", "d/e.h"}},
        {L"([ATTR]&4096)!=0", true, {"l.h"}},
        // A direct scan wants exactly 1: not the 2, 3 and 4 of the others.
        {L"[SIZE]/1000", true, {}},
        {L"[SIZE]/2000", true, {"b.H", "c.c"}},
        {L"path([PATHID],[FILENAME])==\"*/d/*\"", true, {"d/e.h"}},
        {L"type(path([PATHID],[FILENAME]),\"symbolic\")==1", true, {"l.h"}},
        // What does not compile matches nothing, however often it is asked.
        {L"1 2", true, {}},
        {L"[NAME]==1", true, {}},
        {L"type(1,2)==1", true, {}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> expected;
        for (const std::string& name : c.names) expected.push_back(tree.path(name));
        std::sort(expected.begin(), expected.end());
        EXPECT_THAT((Scan{tree.wide(), true, c.criteria, c.caseSensitive}.found()),
                    ElementsAreArray(expected))
            << toMultibyte(c.criteria);
    }
}

TEST(DirectScan, PathsBound) {
    TempTree tree;
    for (const char* name : {"top", "a/x", "a/b/y", "a/b/c/z", "ab/w"}) tree.file(name);
    tree.link("../a", "ab/link");
    tree.link("nowhere", "ab/dangling");
    const std::wstring root = tree.wide();
    const auto at = [&](const char* below, bool recursive) {
        return PathInfo(tree.wide(below).c_str(), recursive);
    };
    struct Case {
        const char* what;
        Scan scan;
        std::vector<std::string> names;
    };
    const Case cases[] = {
        {"not recursive", {root, false}, {"top"}},
        {"recursive exclusion",
         {root, true, nullptr, true, {}, {at("a/b", true)}},
         {"a/x", "ab/dangling", "ab/link", "ab/w", "top"}},
        {"exclusion of the own files only",
         {root, true, nullptr, true, {}, {at("a/b", false)}},
         {"a/b/c/z", "a/x", "ab/dangling", "ab/link", "ab/w", "top"}},
        {"exclusion by pattern",
         {root, true, nullptr, true, {}, {PathInfo((root + L"/*b").c_str(), true)}},
         {"a/x", "top"}},
        {"excluded root", {root, true, nullptr, true, {}, {at("", true)}}, {}},
        {"inclusion", {root, true, nullptr, true, {at("a/b", true)}, {}}, {"a/b/c/z", "a/b/y"}},
        {"exclusion without case",
         {root, true, nullptr, false, {}, {at("A/B", true)}},
         {"a/x", "ab/dangling", "ab/link", "ab/w", "top"}},
        {"missing root", {root + L"/nothing"}, {}},
        {"a file as root", {root + L"/top"}, {}},
        // Links are listed and never followed.
        {"a link as root", {root + L"/ab/link"}, {}},
        {"placeholder type of the distributed file system",
         {root, false, nullptr, true, {}, {}, 1000, DriveInfo(L"/:", DRIVE_LOCAL, L"dfs")},
         {"top"}},
        {"the same, remote",
         {root, false, nullptr, true, {}, {}, 1000, DriveInfo(L"/:", DRIVE_REMOTE, L"dfs")},
         {}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> expected;
        for (const std::string& name : c.names) expected.push_back(tree.path(name));
        EXPECT_THAT(c.scan.found(), ElementsAreArray(expected)) << c.what;
    }
}

TEST(DirectScan, TimeOut) {
    TempTree tree;
    tree.file("d/a");
    CollectingWriter writer;
    Scan scan{tree.wide()};
    scan.timeout = 0;
    EXPECT_EQ(scan.into(writer), WALK_TIMED_OUT);
    EXPECT_THAT(writer.paths, IsEmpty());
    // A limit beyond 31 bits is very long, not negative.
    scan.timeout = 0xFFFFFFFFU;
    EXPECT_EQ(scan.into(writer), WALK_FINISHED);
    EXPECT_EQ(writer.paths.size(), 1U);
}

// Nests directories of `name` below `root` by descriptor, since their path gets
// longer than a system call takes. Returns how many.
int nest(const std::string& root, const std::string& name, int count) {
    int at = open(root.c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < count; ++i) {
        if (mkdirat(at, name.c_str(), 0700) != 0) return i;
        const int file = openat(at, "sibling", O_CREAT | O_WRONLY, 0600);
        close(file);
        const int next = openat(at, name.c_str(), O_RDONLY | O_DIRECTORY);
        close(at);
        at = next;
    }
    close(at);
    return count;
}

class SkipRecorder : public FsScanObserver {
public:
    SkipRecorder() : old_(fsSetScanObserver(this)) {}
    ~SkipRecorder() override { fsSetScanObserver(old_); }
    void skipped(const wchar_t* directory, FsSkipReason reason, int) override {
        skips.emplace_back(toMultibyte(directory), reason);
    }
    bool progress(const FsScanProgress&) override { return ++progresses < stopAt; }
    std::vector<std::pair<std::string, FsSkipReason>> skips;
    int progresses = 0;
    int stopAt = 1000000;

private:
    FsScanObserver* old_;
};

TEST(DirectScan, DeepTreesNeedFewDescriptorsAndEndAtThePathLimit) {
    TempTree tree;
    ASSERT_EQ(nest(tree.path(), "d", 2000), 2000);
    // A sanitizer needs descriptors of its own when it first looks at a type.
    TempTree small;
    small.file("d/f");
    EXPECT_EQ(Scan{small.wide()}.found().size(), 1U);
    const rlimit few{20, 20};
    rlimit old{};
    getrlimit(RLIMIT_NOFILE, &old);
    const rlimit lowered{few.rlim_cur, old.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lowered);
    CollectingWriter writer;
    SkipRecorder skips;
    // Before the descriptors run out: a sanitizer needs some to look at a type that
    // it meets for the first time.
    scanObserver()->progress({});
    const int status = Scan{tree.wide()}.into(writer);
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(status, WALK_FINISHED);
    // "/d" is two characters; a directory's path has at most 1023.
    const std::size_t levels = (1023 - tree.path().size()) / 2;
    EXPECT_EQ(writer.paths.size(), levels + 1);
    ASSERT_EQ(skips.skips.size(), 1U);
    EXPECT_EQ(skips.skips[0].second, FsSkipReason::tooLong);
}

// A branch deeper than descriptors are kept, with siblings that a file system lists
// before it and others that it lists behind it, in whatever order it lists.
void plantDeepBranch(const TempTree& tree, std::string path, std::size_t size = 0) {
    const std::string root = path;
    for (int i = 0; i < 40; ++i, path += "deep/")
        for (const char* name : {"a", "side/s"}) tree.file(path + name, size);
    tree.file(path + "end", size);
    path = root;
    for (int i = 0; i < 40; ++i, path += "deep/")
        for (const char* name : {"m", "tail/t", "z"}) tree.file(path + name, size);
}

TEST(DirectScan, SiblingsOfADeepBranchAreKept) {
    TempTree tree;
    plantDeepBranch(tree, "");
    EXPECT_THAT(Scan{tree.wide()}.found(), ElementsAreArray(reference(tree.path())));
}

TEST(DirectScan, ADirectoryExchangedForALinkBehindTheWalkLeadsNowhere) {
    TempTree tree;
    plantDeepBranch(tree, "root/");
    plantDeepBranch(tree, "victim/", 777);
    // When the walk is at its deepest, the way back is another's tree.
    struct Exchange : CollectingWriter {
        explicit Exchange(const TempTree& on) : tree(on) {}
        using CollectingWriter::addRecord;
        int addRecord(const FsFileInfo& record) override {
            if (record.getName() == std::wstring(L"end")) {
                std::filesystem::rename(tree.path("root/deep"), tree.path("away"));
                tree.link("../victim/deep", "root/deep");
            }
            return CollectingWriter::addRecord(record);
        }
        const TempTree& tree;
    } writer(tree);
    SkipRecorder skips;
    const std::string log = tree.path("log");
    ASSERT_TRUE(startDebug(log.c_str()));
    EXPECT_EQ(Scan{tree.wide("root")}.into(writer), WALK_FINISHED);
    stopDebug();
    EXPECT_TRUE(std::filesystem::is_symlink(tree.path("root/deep")));
    for (const FsFileInfo& record : writer.records) EXPECT_NE(record.getSize(), 777U);
    EXPECT_FALSE(skips.skips.empty());
    const std::string lines = readWholeFile(log);
    for (const auto& [path, reason] : skips.skips) {
        EXPECT_EQ(reason, FsSkipReason::vanished) << path;
        EXPECT_NE(lines.find("::fs_scan - scandir error opening '" + path + "'"), lines.npos);
    }
}

TEST(DirectScan, UnreadableDirectoriesAreReportedAndPassed) {
    TempTree tree;
    tree.file("open/a");
    tree.file("shut/b");
    ASSERT_EQ(chmod(tree.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(tree.path("shut").c_str(), 0), 0);
    const int verdict = inChild([&] {
        // Root may read everything.
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 9;
        SkipRecorder skips;
        if (Scan{tree.wide()}.found() != std::vector{tree.path("open/a")}) return 1;
        const auto denied = std::make_pair(tree.path("shut"), FsSkipReason::denied);
        return skips.skips == std::vector{denied} ? 0 : 2;
    });
    chmod(tree.path("shut").c_str(), 0700);
    EXPECT_EQ(verdict, 0);
}

TEST(DirectScan, ObserverIsToldOfExclusionsAndMayStop) {
    TempTree tree;
    tree.file("out/a");
    for (int i = 0; i < 2100; ++i) tree.file("many/" + std::to_string(i));
    SkipRecorder observer;
    Scan scan{tree.wide()};
    scan.exclude = {PathInfo(tree.wide("out").c_str(), true)};
    CollectingWriter all;
    EXPECT_EQ(scan.into(all), WALK_FINISHED);
    EXPECT_EQ(all.paths.size(), 2100U);
    EXPECT_EQ(observer.progresses, 2);
    EXPECT_THAT(observer.skips,
                ElementsAre(std::make_pair(tree.path("out"), FsSkipReason::excluded)));
    observer.progresses = 0;
    observer.stopAt = 1;
    CollectingWriter some;
    EXPECT_EQ(scan.into(some), WALK_TIMED_OUT);
    EXPECT_LT(some.paths.size(), 1100U);
}

TEST(DirectScan, NamesComeBackAsTheirBytes) {
    TempTree tree;
    const std::vector<std::string> names = {
        " blank ", "quo'te\"", "$(touch x)",   "new\nline",        "-dash",
        "--",      "\xff\xfe", "\xed\xb2\x80", "\xf4\x90\x80\x80", std::string(255, 'n'),
        "tab\t",   "\xc3\xa9", "[x]"};
    for (const std::string& name : names) tree.file(name);
    std::vector<std::string> expected;
    for (const std::string& name : names) expected.push_back(tree.path() + "/" + name);
    EXPECT_THAT(Scan{tree.wide()}.found(), UnorderedElementsAreArray(expected));
}

TEST(DirectScan, LogsWhatItPasses) {
    TempTree tree;
    tree.file("f");
    tree.link("f", "l");
    const std::string log = tree.path("log");
    ASSERT_TRUE(startDebug(log.c_str()));
    CollectingWriter writer;
    Scan{tree.wide("l")}.into(writer);
    Scan excluded{tree.wide()};
    excluded.exclude = {PathInfo(tree.wide().c_str(), true)};
    excluded.into(writer);
    Scan{tree.wide("gone")}.into(writer);
    stopDebug();
    EXPECT_EQ(readWholeFile(log), "::fs_build - '" + tree.path("l") +
                                      "' is a symbolic link or is not a directory!\n" +
                                      "::fs_build - path '" + tree.path() + "' excluded!\n" +
                                      "::isValidPath - error 2 opening '" + tree.path("gone") +
                                      "' path\n" + "::fs_build - '" + tree.path("gone") +
                                      "' is a symbolic link or is not a directory!\n");
}

}  // namespace
}  // namespace fscanner

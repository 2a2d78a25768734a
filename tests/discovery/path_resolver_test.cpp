#include <gmock/gmock.h>

#include "fixtures.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// No directory here exists, so that no link of the machine changes a path.
constexpr const char* table =
    "proc /qq/proc proc rw 0 0\n"
    "/dev/a / ext4 rw 0 0\n"
    "/dev/b /qq/usr/local xfs rw 0 0\n"
    "/dev/c /qq/boot vfat rw 0 0\n"
    "h:/e /qq/mnt/nas nfs4 rw 0 0\n"
    "/dev/d /qq/mnt/nas/disk ext4 rw 0 0\n"
    "h:/f /qq/mnt/nasty nfs4 rw 0 0\n";

struct Lists {
    std::vector<std::string> resolved, parent, excluded, unresolved;

    bool operator==(const Lists&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Lists& lists) {
    const auto part = [&](const char* name, const std::vector<std::string>& list) {
        out << "\n  " << name << ":";
        for (const std::string& text : list) out << " {" << text << "}";
    };
    part("resolved", lists.resolved);
    part("parent", lists.parent);
    part("excluded", lists.excluded);
    part("unresolved", lists.unresolved);
    return out;
}

Lists resolve(const std::string& mounts, const std::vector<std::string>& entries,
              const FileSystemNames& includedFileSystems = {},
              const FileSystemNames& excludedFileSystems = {}) {
    const ResolvedSearch search(normalisedDrivesOf(mounts), entries, includedFileSystems,
                                excludedFileSystems);
    return {show(search.resolved), show(search.parent), show(search.excluded),
            show(search.unresolved)};
}

struct Case {
    std::vector<std::string> entries;
    Lists expected;
};

void expectLists(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        EXPECT_EQ(resolve(table, c.entries), c.expected) << testing::PrintToString(c.entries);
    }
}

TEST(PathResolver, FindsTheLongestMountByComponents) {
    expectLists({
        {{"/qq/usr"}, {{"/qq/usr on /"}, {}, {}, {}}},
        {{"/qq/usr/local/bin"}, {{"/qq/usr/local/bin on /qq/usr/local"}, {}, {}, {}}},
        {{"/qq/usr/localised"}, {{"/qq/usr/localised on /"}, {}, {}, {}}},
        {{"/qq/USR/local"}, {{"/qq/USR/local on /"}, {}, {}, {}}},
        {{"/qq//usr/./x/../local/"}, {{"/qq/usr/local on /qq/usr/local"}, {}, {}, {}}},
        {{"/qq/mnt/nas/disk/x"}, {{"/qq/mnt/nas/disk/x on /qq/mnt/nas/disk"}, {}, {}, {}}},
        {{"/"}, {{"/ on /"}, {}, {}, {}}},
        {{"/qq/home/*/tmp+"}, {{"/qq/home/*/tmp+ on /"}, {}, {}, {}}},
        {{"/qq/%X%/100%"}, {{"/qq/%X%/100% on /"}, {}, {}, {}}},
    });
}

TEST(PathResolver, FindsTheMountsBelowARecursivePath) {
    expectLists({
        {{"/qq/usr+"}, {{"/qq/usr+ on /"}, {"/qq/usr/local+ on /qq/usr/local"}, {}, {}}},
        // A path that only starts with the same characters is not above the mount.
        {{"/qq/us+"}, {{"/qq/us+ on /"}, {}, {}, {}}},
        {{"/qq/mnt+"}, {{"/qq/mnt+ on /"}, {"/qq/mnt/nas/disk+ on /qq/mnt/nas/disk"}, {}, {}}},
    });
}

TEST(PathResolver, AdmitsTheDrivesOfTheGroup) {
    const std::vector<std::string> nas = {"/qq/mnt/nas+ on /qq/mnt/nas"};
    const std::vector<std::string> both = {"/qq/mnt/nas+ on /qq/mnt/nas",
                                           "/qq/mnt/nasty+ on /qq/mnt/nasty"};
    const std::vector<std::string> disk = {"/qq/mnt/nas/disk+ on /qq/mnt/nas/disk"};
    expectLists({
        // The mount that holds the path is remote: no other drive takes its place.
        {{"/qq/mnt/nas/x"}, {{}, {}, {}, {"/qq/mnt/nas/x"}}},
        {{"/qq/mnt/nas+"}, {{}, disk, {}, {}}},
        {{"$remote::/qq/mnt/nas+"}, {nas, {}, {}, {}}},
        {{"$REMOTE::/qq/mnt+"}, {{}, both, {}, {}}},
        {{"$remote::/qq/usr+"}, {{}, {}, {}, {"$remote::/qq/usr+"}}},
        {{"$all::/qq/mnt/nas+"}, {nas, disk, {}, {}}},
        {{"$all:/qq/mnt/nas+"}, {nas, disk, {}, {}}},
        {{"$remote:/qq/mnt/nas+"}, {nas, {}, {}, {}}},
        {{"$all::$Remote:/qq/mnt/nas+"}, {nas, {}, {}, {}}},
        {{"$local::$remote:/qq/mnt/nas+"}, {{}, {}, {}, {"$local::$remote:/qq/mnt/nas+"}}},
        {{"$other::/qq/usr"}, {{}, {}, {}, {"$other::/qq/usr"}}},
        {{"$other:/qq/usr"}, {{}, {}, {}, {"$other:/qq/usr"}}},
        {{"$floppy::/qq/usr"}, {{}, {}, {}, {"$floppy::/qq/usr"}}},
        {{"$floppy:/qq/usr"}, {{}, {}, {}, {"$floppy:/qq/usr"}}},
    });
}

TEST(PathResolver, AdmitsTheDrivesOfThePrefix) {
    const Lists usr = {{"/qq/usr on /"}, {}, {}, {}};
    expectLists({
        {{"*:/qq/usr"}, usr},
        {{"?:/qq/usr"}, usr},
        {{"$all::*:/qq/usr"}, usr},
        {{"/:/qq/usr+"}, {{"/qq/usr+ on /"}, {}, {}, {}}},
        {{"/qq/usr/local:/qq/usr+"}, {{}, {"/qq/usr/local+ on /qq/usr/local"}, {}, {}}},
        {{"/:/qq/usr/local"}, {{}, {}, {}, {"/:/qq/usr/local"}}},
        {{"/qq/mnt/nas:/qq/mnt/nas"}, {{}, {}, {}, {"/qq/mnt/nas:/qq/mnt/nas"}}},
        {{"$all::/qq/mnt/nas:/qq/mnt/nas"}, {{"/qq/mnt/nas on /qq/mnt/nas"}, {}, {}, {}}},
        {{"/QQ/usr/local:/qq/usr+"}, {{}, {}, {}, {"/QQ/usr/local:/qq/usr+"}}},
        {{"C:/qq/usr"}, {{}, {}, {}, {"C:/qq/usr"}}},
    });
}

TEST(PathResolver, SplitsAtTheFirstColons) {
    expectLists({
        // A ":" of the path's own wants a prefix in front of it.
        {{"/qq/a:b"}, {{}, {}, {}, {"/qq/a:b"}}},
        {{"*:/qq/a:b"}, {{"/qq/a:b on /"}, {}, {}, {}}},
        {{"/qq/a::b"}, {{}, {}, {}, {"/qq/a::b"}}},
        {{"$local::*:/qq/a::b"}, {{"/qq/a::b on /"}, {}, {}, {}}},
        // No path is not the current directory.
        {{""}, {{}, {}, {}, {}}},
        {{"$all::"}, {{}, {}, {}, {"$all::"}}},
        {{"/:"}, {{}, {}, {}, {"/:"}}},
    });
}

TEST(PathResolver, ListsEveryPairOnce) {
    EXPECT_EQ(resolve(table, {"/qq/usr", "*:/qq/usr/", "/qq/usr/local", "/qq/usr+", "$x::/a",
                              "$x::/a+", "/qq/usr"}),
              (Lists{{"/qq/usr+ on /", "/qq/usr/local on /qq/usr/local"},
                     {"/qq/usr/local+ on /qq/usr/local"},
                     {},
                     {"$x::/a+"}}));
}

TEST(PathResolver, LeavesOutFilteredFileSystems) {
    // Not searched through the enclosing drive either.
    EXPECT_EQ(resolve(table, {"/qq/boot/x", "/qq/bootx"}, {}, {L"vfat"}),
              (Lists{{"/qq/bootx on /"}, {}, {"/qq/boot/x on /"}, {}}));
    EXPECT_EQ(
        resolve(table, {"/qq/boot+", "/qq+"}, {L"ext4"}, {}),
        (Lists{{"/qq+ on /"}, {"/qq/mnt/nas/disk+ on /qq/mnt/nas/disk"}, {"/qq/boot+ on /"}, {}}));
    EXPECT_EQ(resolve(table, {"/+", "/qq/usr"}, {L"xfs", L"vfat"}, {L"vfat"}),
              (Lists{{}, {"/qq/usr/local+ on /qq/usr/local"}, {}, {"/qq/usr"}}));
    EXPECT_EQ(resolve("a / ext4\nb /qq/a:b vfat\n", {"*:/qq/a:b/c"}, {}, {L"vfat"}),
              (Lists{{}, {}, {"/qq/a:b/c on /"}, {}}));
}

TEST(PathResolver, SearchesUnusualDrives) {
    EXPECT_EQ(resolve("a / ext4\nx /qq/d dfs\n", {"$all::/qq/d/x"}),
              (Lists{{"/qq/d/x on /qq/d", "/qq/d/x on /qq/d"}, {}, {}, {}}));
    EXPECT_EQ(
        resolve("a / ext4\nb /qq/a:/b ext4\nc /qq/a:b:c ext4\n", {"*:/qq/a:/b/x", "*:/qq/a:b:c/x"}),
        (Lists{{"/qq/a:/b/x on /qq/a:/b", "/qq/a:b:c/x on /qq/a:b:c"}, {}, {}, {}}));
    // A mount below a directory that is really called "*".
    EXPECT_EQ(resolve("a / ext4\nb /qq/*/x xfs\n", {"/qq/*"}), (Lists{{"/qq/* on /"}, {}, {}, {}}));
    EXPECT_EQ(resolve("", {"/qq+"}), (Lists{{}, {}, {}, {"/qq+"}}));
    // A path is resolved relative to the current directory, and through links.
    TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "d");
    std::filesystem::create_symlink("d", directory / "l");
    const std::string real = std::filesystem::canonical(directory / "d").string();
    EXPECT_EQ(resolve("a / ext4\n", {directory / "l"}), (Lists{{real + " on /"}, {}, {}, {}}));
}

TEST(PathResolver, SaysWhyAnEntryIsUnresolved) {
    DebugLog log;
    resolve(table, {"$other::/qq", "C:/qq", "$remote:/qq/usr"});
    EXPECT_TRUE(log.has("PathHelper::pathResolver - entering... [pathList size is 3]"));
    EXPECT_TRUE(log.has("PathHelper::isValidPath - media not valid!"));
    EXPECT_TRUE(
        log.has("PathHelper::pathResolver - media: $other, pathName: /qq, recursive: false"));
    EXPECT_TRUE(log.has("PathHelper::pathResolver - drive type [C:] not supported!"));
    EXPECT_TRUE(log.has("PathHelper::pathResolver - '$remote:' received on path: /qq/usr"));
    EXPECT_TRUE(log.has("PathHelper::pathResolver - exit."));
}

TEST(UnixPathResolver, ComparesTexts) {
    struct TextCase {
        const char* entry;
        const char* expected;  // "resolved / parent", or "-"
    };
    for (const TextCase& c : {TextCase{"/usr:/usr/x", "/usr/x / /usr/x"},
                              {"/usr:/usr/+", "/usr/+ / /usr+"},
                              {"/usr/local:/usr+", "/usr+ / /usr/local+"},
                              {"/usr/local:/usr", "-"},
                              {"/usr/local:/USR+", "/USR+ / /usr/local+"},
                              // Characters, not components.
                              {"/us:/usr", "/usr / /usr"},
                              {"/:/+", "/+ / /+"},
                              {"/home/u/tmp/x:/home/*/tmp+", "/home/*/tmp+ / /home/u/tmp/x+"},
                              {"/mnt:/usr+", "-"},
                              {"/usr", "-"}}) {
        PathInfo resolved, parent;
        const int found = PathHelper::unix_path_resolver(pathsOf({c.entry})[0], resolved, parent);
        EXPECT_EQ(found ? show(resolved) + " / " + show(parent) : "-", c.expected) << c.entry;
    }
}

TEST(ValidPath, IsAPrefixWithTheColon) {
    const std::vector<DriveInfo> drives = drivesOf(table);
    EXPECT_TRUE(PathHelper::isValidPath(drives, 27, L"/QQ/boot:/x", true));
    EXPECT_TRUE(PathHelper::isValidPath(drives, 27, L"/:x", true));
    EXPECT_FALSE(PathHelper::isValidPath(drives, 27, L"/qq/boot", true));
    EXPECT_FALSE(PathHelper::isValidPath(drives, 4, L"/qq/boot:/x", true));
    EXPECT_TRUE(PathHelper::isValidPath(drives, 4, L"/qq/mnt/nas:", true));
    EXPECT_FALSE(PathHelper::isValidPath(drives, 0, L"/:/x", true));
}

TEST(FileSystemPaths, KeepTheMoreSpecificEntry) {
    const std::vector<PathInfo> included = pathsOf({"/+", "/a/b+", "/tie+"});
    const std::vector<PathInfo> excluded = pathsOf({"/a+", "/a/b/c+", "/tie+", "/x"});
    std::vector<PathDrive> pairs;
    for (const char* path :
         {"/o", "/a/o", "/a/b/o", "/a/b/c/o", "/tie/o", "/x", "/x/o", "p:/a/o", "/o:/a/o"}) {
        pairs.push_back({PathInfo(toWide(path).c_str(), false), DriveInfo()});
    }
    PathHelper::fileSystemPathDriveListPruning(pairs, included, excluded);
    EXPECT_THAT(show(pairs), ElementsAre("/o", "/a/b/o", "/tie/o", "/x/o"));
    EXPECT_FALSE(PathHelper::fileSystemPathChecker(L"/a", {}, excluded));
    EXPECT_TRUE(PathHelper::fileSystemPathChecker(L"/o", {}, excluded));
}

}  // namespace
}  // namespace fscanner

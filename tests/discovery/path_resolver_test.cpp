#include <gmock/gmock.h>

#include "fixtures.h"

namespace fscanner {
namespace {

using testing::ElementsAre;

// No directory here exists, so that links of this machine do not change a path.
constexpr const char* kTable =
    "proc /qq/proc proc rw 0 0\n"
    "/dev/a / ext4 rw 0 0\n"
    "/dev/b /qq/usr/local xfs rw 0 0\n"
    "/dev/c /qq/boot vfat rw 0 0\n"
    "h:/e /qq/mnt/nas nfs4 rw 0 0\n"
    "/dev/d /qq/mnt/nas/disk ext4 rw 0 0\n"
    "h:/f /qq/mnt/nasty nfs4 rw 0 0\n";

/// The pairs of all entries: "PAIR, below PAIR, excluded PAIR, unresolved ENTRY".
std::string resolve(const std::string& mounts, const std::vector<std::string>& entries,
                    const FileSystemNames& includedFileSystems = {},
                    const FileSystemNames& excludedFileSystems = {}) {
    const ResolvedSearch search(normalisedDrivesOf(mounts), entries, includedFileSystems,
                                excludedFileSystems);
    std::string text;
    for (const auto& [kind, list] : {std::pair{"", &search.resolved},
                                     {"below ", &search.parent},
                                     {"excluded ", &search.excluded},
                                     {"unresolved ", &search.unresolved}}) {
        for (const std::string& pair : show(*list)) {
            text += (text.empty() ? "" : ", ") + std::string(kind) + pair;
        }
    }
    return text;
}

TEST(PathResolver, FindsTheDrivesOfAnEntry) {
    const std::string nas = "/qq/mnt/nas+ on /qq/mnt/nas";
    const std::string belowNas = "below /qq/mnt/nas/disk+ on /qq/mnt/nas/disk";
    const std::string usr = "/qq/usr on /";
    const struct {
        const char* entry;
        std::string expected;
    } cases[] = {
        // The longest mount, by components.
        {"/", "/ on /"},
        {"/qq/usr/localised", "/qq/usr/localised on /"},
        {"/qq/USR/local", "/qq/USR/local on /"},
        {"/qq//usr/./x/../local/", "/qq/usr/local on /qq/usr/local"},
        {"/qq/home/*/tmp+", "/qq/home/*/tmp+ on /"},
        {"/qq/%X%/100%", "/qq/%X%/100% on /"},
        // The mounts below a recursive path.
        {"/qq/usr+", "/qq/usr+ on /, below /qq/usr/local+ on /qq/usr/local"},
        {"/qq/us+", "/qq/us+ on /"},
        {"/qq/mnt+", "/qq/mnt+ on /, " + belowNas},
        // The drives of the group. A drive that the group lacks is not replaced by another.
        {"/qq/mnt/nas/x", "unresolved /qq/mnt/nas/x"},
        {"/qq/mnt/nas+", belowNas},
        {"$remote::/qq/mnt/nas+", nas},
        {"$REMOTE::/qq/mnt+", "below " + nas + ", below /qq/mnt/nasty+ on /qq/mnt/nasty"},
        {"$remote::/qq/usr+", "unresolved $remote::/qq/usr+"},
        {"$all::/qq/mnt/nas+", nas + ", " + belowNas},
        {"$all:/qq/mnt/nas+", nas + ", " + belowNas},
        {"$all::$Remote:/qq/mnt/nas+", nas},
        {"$local::$remote:/qq/mnt/nas+", "unresolved $local::$remote:/qq/mnt/nas+"},
        {"$other::/qq/usr", "unresolved $other::/qq/usr"},
        {"$other:/qq/usr", "unresolved $other:/qq/usr"},
        {"$floppy::/qq/usr", "unresolved $floppy::/qq/usr"},
        {"$floppy:/qq/usr", "unresolved $floppy:/qq/usr"},
        // The drives of the prefix.
        {"*:/qq/usr", usr},
        {"$all::?:/qq/usr", usr},
        {"/:/qq/usr+", "/qq/usr+ on /"},
        {"/qq/usr/local:/qq/usr+", "below /qq/usr/local+ on /qq/usr/local"},
        {"/:/qq/usr/local", "unresolved /:/qq/usr/local"},
        {"/qq/mnt/nas:/qq/mnt/nas", "unresolved /qq/mnt/nas:/qq/mnt/nas"},
        {"$all::/qq/mnt/nas:/qq/mnt/nas+", nas},
        {"/QQ/usr/local:/qq/usr+", "unresolved /QQ/usr/local:/qq/usr+"},
        {"C:/qq/usr", "unresolved C:/qq/usr"},
        // A path that contains ":" needs a prefix in front of it.
        {"/qq/a:b", "unresolved /qq/a:b"},
        {"*:/qq/a:b", "/qq/a:b on /"},
        {"/qq/a::b", "unresolved /qq/a::b"},
        {"$local::*:/qq/a::b", "/qq/a::b on /"},
        // An absent path is not the current directory.
        {"", ""},
        {"$all::", "unresolved $all::"},
        {"/:", "unresolved /:"},
    };
    for (const auto& [entry, expected] : cases) EXPECT_EQ(resolve(kTable, {entry}), expected);
}

TEST(PathResolver, ListsEveryPairOnce) {
    EXPECT_EQ(resolve(kTable, {"/qq/usr", "*:/qq/usr/", "/qq/usr/local", "/qq/usr+", "$x::/a",
                               "$x::/a+", "/qq/usr"}),
              "/qq/usr+ on /, /qq/usr/local on /qq/usr/local, "
              "below /qq/usr/local+ on /qq/usr/local, unresolved $x::/a+");
}

TEST(PathResolver, LeavesOutFilteredFileSystems) {
    // The enclosing drive is not searched for it either.
    EXPECT_EQ(resolve(kTable, {"/qq/boot/x", "/qq/bootx"}, {}, {L"vfat"}),
              "/qq/bootx on /, excluded /qq/boot/x on /");
    EXPECT_EQ(resolve(kTable, {"/qq/boot+", "/qq+"}, {L"ext4"}, {}),
              "/qq+ on /, below /qq/mnt/nas/disk+ on /qq/mnt/nas/disk, excluded /qq/boot+ on /");
    EXPECT_EQ(resolve(kTable, {"/+", "/qq/usr"}, {L"xfs", L"vfat"}, {L"vfat"}),
              "below /qq/usr/local+ on /qq/usr/local, unresolved /qq/usr");
    EXPECT_EQ(resolve("a / ext4\nb /qq/a:b vfat\n", {"*:/qq/a:b/c"}, {}, {L"vfat"}),
              "excluded /qq/a:b/c on /");
}

TEST(PathResolver, SearchesUnusualDrives) {
    EXPECT_EQ(resolve("a / ext4\nx /qq/d dfs\n", {"$all::/qq/d/x"}),
              "/qq/d/x on /qq/d, /qq/d/x on /qq/d");
    EXPECT_EQ(
        resolve("a / ext4\nb /qq/a:/b ext4\nc /qq/a:b:c ext4\n", {"*:/qq/a:/b/x", "*:/qq/a:b:c/x"}),
        "/qq/a:/b/x on /qq/a:/b, /qq/a:b:c/x on /qq/a:b:c");
    // A mount below a directory whose name is really "*".
    EXPECT_EQ(resolve("a / ext4\nb /qq/*/x xfs\n", {"/qq/*"}), "/qq/* on /");
    EXPECT_EQ(resolve("", {"/qq+"}), "unresolved /qq+");
    // A path is resolved relative to the current directory, and through links.
    TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "d");
    std::filesystem::create_symlink("d", directory / "l");
    const std::string real = std::filesystem::canonical(directory / "d").string();
    EXPECT_EQ(resolve("a / ext4\n", {directory / "l"}), real + " on /");
}

TEST(OfferedPaths, AreComparedAsTexts) {
    // "resolved / parent", or "-"; by characters, not components.
    for (const auto& [entry, expected] : {std::pair("/us:/usr", "/usr / /usr"),
                                          {"/usr/local:/USR+", "/USR+ / /usr/local+"},
                                          {"/usr/local:/usr", "-"},
                                          {"/usr", "-"}}) {
        PathInfo resolved, parent;
        const int found = PathHelper::unix_path_resolver(pathsOf({entry})[0], resolved, parent);
        EXPECT_EQ(found ? show(resolved) + " / " + show(parent) : "-", expected) << entry;
    }
    const std::vector<DriveInfo> drives = drivesOf(kTable);
    for (const auto& [mask, path, valid] : {std::tuple(27U, L"/QQ/boot:/x", true),
                                            {27U, L"/qq/boot", false},
                                            {4U, L"/qq/boot:/x", false}})
        EXPECT_EQ(PathHelper::isValidPath(drives, mask, path, true), valid) << path;
    std::vector<PathDrive> pairs;
    for (const char* path : {"/o", "/a/o", "/a/b/o", "/tie/o", "/x", "/x/o"})
        pairs.push_back({PathInfo(toWide(path).c_str(), false), DriveInfo()});
    PathHelper::fileSystemPathDriveListPruning(pairs, pathsOf({"/+", "/a/b+", "/tie+"}),
                                               pathsOf({"/a+", "/tie+", "/x"}));
    EXPECT_THAT(show(pairs), ElementsAre("/o", "/a/b/o", "/tie/o", "/x/o"));
}

}  // namespace
}  // namespace fscanner

// From a mount table to the drives that searches use.

#include "fscanner/discovery/drivehelper.h"

#include <gmock/gmock.h>

#include "fixtures.h"
#include "fscanner/discovery/mount_map.h"

namespace fscanner {
namespace {

using testing::ElementsAre;

std::vector<std::string> drivesOfInfo(const std::string& text) {
    return show(listMountedDrives({text, true}));
}

std::vector<std::string> drivesOfTable(const std::string& text) {
    return show(listMountedDrives({text, false}));
}

TEST(MountInfo, TellsWhatALineIs) {
    const struct {
        const char* line;
        std::vector<std::string> drives;
    } cases[] = {
        {"2 1 8:1 / / rw - ext4 /dev/a rw\n", {"2 /: ext4"}},
        {"2 1 8:1 /sub / rw shared:1 master:2 - ext4 /dev/a rw\n", {"2 /: ext4"}},
        {"2 1 0:5 / /a\\040b\\011\\012\\134c rw - tmpfs x rw\n", {"2 /a b\t\n\\c: tmpfs"}},
        {"2 1 0:5 / /\\043\\303\\244 rw - tmpfs x rw\n", {"2 /#\xc3\xa4: tmpfs"}},
        {"2 1 0:5 / /m rw - nfs4 h:/e rw", {"4 /m: nfs4"}},
        // The user who mounts it chooses the source.
        {"2 1 0:5 / /m rw - fuse.x  rw\n", {"2 /m: fuse.x"}},
        {"2 1 0:5 / /m rw - fuse.x h:\\040- rw\n", {"4 /m: fuse.x"}},
        // A directory may have the name of the mark between the fields.
        {"2 1 0:5 / /- rw - tmpfs x rw\n", {"2 /-: tmpfs"}},
        {"2 1 0:5 / /m: rw - tmpfs x rw\n", {"2 /m:: tmpfs"}},
        // A placeholder counts, even one that programs should not list.
        {"2 1 0:5 / /auto rw - autofs x fd=5,ignore\n", {"0 /auto: autofs"}},
        {"\n2\n2 1 0:5 / /m rw\n2 1 0:5 / /m rw -\n2 1 0:5 / /m rw - \n", {}},
    };
    for (const auto& [line, drives] : cases) EXPECT_EQ(drivesOfInfo(line), drives) << line;
}

TEST(MountInfo, LeavesOutCoveredMounts) {
    const auto line = [](const char* ids, const char* directory, const char* type) {
        return std::string(ids) + " 0:1 / " + directory + " rw - " + type + " x rw\n";
    };
    const std::string root = line("2 1", "/", "ext4");
    const struct {
        const char* what;
        std::string table;
        std::vector<std::string> drives;
    } cases[] = {
        {"one on top of the other",
         root + line("3 2", "/m", "a") + line("4 3", "/m", "b"),
         {"2 /: ext4", "2 /m: b"}},
        {"listed before what it is on",
         line("4 3", "/m", "b") + line("3 2", "/m", "a") + root,
         {"2 /m: b", "2 /: ext4"}},
        {"below a covered one",
         root + line("3 2", "/m", "a") + line("4 3", "/m/n", "b") + line("5 3", "/m", "c"),
         {"2 /: ext4", "2 /m: c"}},
        {"below the covering one",
         root + line("3 2", "/m", "a") + line("4 3", "/m", "b") + line("5 4", "/m/n", "c"),
         {"2 /: ext4", "2 /m: b", "2 /m/n: c"}},
        {"covered from further up",
         root + line("3 2", "/m/n/o", "a") + line("4 2", "/m", "b"),
         {"2 /: ext4", "2 /m: b"}},
        {"a name that begins alike",
         root + line("3 2", "/mm", "a") + line("4 2", "/m", "b"),
         {"2 /: ext4", "2 /mm: a", "2 /m: b"}},
        {"a placeholder and what it stands for",
         root + line("3 2", "/m", "autofs") + line("4 3", "/m", "nfs"),
         {"2 /: ext4", "4 /m: nfs"}},
        // Paths begin in the root directory, below file systems that were mounted on it later.
        {"on the root", root + line("3 2", "/", "a") + line("4 3", "/m", "b"), {"2 /: ext4"}},
        {"below a changed root",
         line("3 7", "/m", "a") + line("4 7", "/n", "b"),
         {"2 /m: a", "2 /n: b"}},
        {"its own parent", line("1 1", "/", "a") + line("2 1", "/m", "b"), {"2 /: a", "2 /m: b"}},
        {"in a circle",
         root + line("3 2", "/m", "a") + line("2 3", "/m", "b"),
         {"2 /: ext4", "2 /m: a"}},
    };
    for (const auto& [what, table, drives] : cases) EXPECT_EQ(drivesOfInfo(table), drives) << what;
}

TEST(MountedDrives, HaveTheRealPathsOfADirectory) {
    const TemporaryDirectory directory;
    const std::string root = std::filesystem::canonical(directory.path()).string();
    for (const char* name : {"/real/local", "/real/nas/below", "/real/x:"})
        std::filesystem::create_directories(root + name);
    std::filesystem::create_symlink("real", root + "/link");
    std::filesystem::create_symlink("local", root + "/real/other");
    std::filesystem::create_symlink("..", root + "/real/nas/up");
    const auto line = [&root](const char* device, const char* name, const char* type) {
        return std::string(device) + " " + root + name + " " + type + " rw\n";
    };
    // A link in a remote mount is not read, by neither of its names.
    const std::string table = "a / ext4\n" + line("b", "/link/local", "xfs") +
                              line("b", "/real/other", "vfat") + line("h:/e", "/link/nas", "nfs") +
                              line("c", "/link/nas/up", "xfs") + line("c", "/real/nas/up", "xfs") +
                              line("d", "/link/x:", "xfs") + line("e", "/gone/x/", "autofs") +
                              "f odd xfs\n";
    std::vector<std::string> shown;
    for (std::string drive : drivesOfTable(table)) {
        const std::size_t at = drive.find(root);
        shown.push_back(at == drive.npos ? drive : drive.replace(at, root.size(), "@"));
    }
    EXPECT_THAT(shown,
                ElementsAre("2 /: ext4", "2 @/real/local: xfs", "2 @/real/local: vfat",
                            "4 @/real/nas: nfs", "2 @/real/nas/up: xfs", "2 @/real/nas/up: xfs",
                            "2 @/real/x:: xfs", "0 @/gone/x/: autofs", "2 odd: xfs"));
}

TEST(MountMap, TakesPathsAsTheyAre) {
    const MountMap mounts(listMountedDrives(
        {"a / ext4\nb /m/* xfs\nc /m/q? ext4\nd /m/z xfs\nd /m/z/e ext4\nx /m-/auto autofs\n",
         false}));
    const DriveInfo ext4(L"/:", DRIVE_LOCAL, L"ext4");
    EXPECT_TRUE(mounts.stops(L"/m/*", ext4));
    EXPECT_TRUE(mounts.stops(L"/m-/auto/", ext4));
    for (const wchar_t* free : {L"/", L"/m", L"/m/a", L"/m/q?", L"/m/z/e", L"/m/zz"})
        EXPECT_FALSE(mounts.stops(free, ext4)) << toMultibyte(free);
    const PathDrive m{PathInfo(L"/m", true), ext4};
    EXPECT_THAT(mounts.stopsInside(m), ElementsAre(L"/m/*", L"/m/z"));
    EXPECT_TRUE(mounts.reaches(m, L"/m"));
    EXPECT_TRUE(mounts.reaches(m, L"/m/q?/a"));
    EXPECT_FALSE(mounts.reaches(m, L"/m/*/a"));
    // It is not reached through a drive of another kind.
    EXPECT_FALSE(mounts.reaches(m, L"/m/z/e"));
    EXPECT_TRUE(mounts.hasInside(L"/m"));
    EXPECT_FALSE(mounts.hasInside(L"/m/z/e"));
    EXPECT_STREQ(mounts.holding(L"/m/*/x")->getName(), L"/m/*:");
    EXPECT_STREQ(mounts.holding(L"/m/a/x")->getName(), L"/:");
    EXPECT_EQ(MountMap().holding(L"/m"), nullptr);
}

}  // namespace
}  // namespace fscanner

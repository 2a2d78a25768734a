#include <gmock/gmock.h>

#include "fixtures.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscanner {
namespace {

using testing::ElementsAre;

constexpr const char* kSmallTable =
    "/dev/sda1 / ext4 rw 0 0\n"
    "server:/export /mnt/nas nfs4 rw 0 0\n"
    "systemd-1 /auto autofs rw 0 0\n"
    "/dev/sdb1 /home vfat rw 0 0\n";

TEST(DriveList, KeepsNamesAsTheyAre) {
    // No ":" is added to a directory that ends in one, so as a path it loses a
    // character.
    const std::vector<DriveInfo> drives =
        drivesOf("a /m/a\\040b ext4 rw 0 0\nb /m/x: ext4 rw 0 0\nc /m/\xff ext4 rw 0 0\n");
    EXPECT_THAT(show(drives), ElementsAre("2 /m/a b: ext4", "2 /m/x: ext4", "2 /m/\xff: ext4"));
    std::vector<PathInfo> paths;
    PathHelper::buildPathList(drives, paths);
    EXPECT_THAT(show(paths), ElementsAre("/m/a b+", "/m/x+", "/m/\xff+"));
}

TEST(DriveList, SearchesADistributedFileSystemBothWays) {
    const std::string table = "x /dfs dfs rw 0 0\ny:/ /far dfs rw 0 0\n";
    EXPECT_THAT(show(drivesOf(table)),
                ElementsAre("4 /dfs: dfs", "2 /dfs: dfs", "4 /far: dfs", "2 /far: dfs"));
    // The mask is asked once, for the mount itself.
    EXPECT_THAT(show(drivesOf(table, mdLocalDriveGroup)),
                ElementsAre("4 /dfs: dfs", "2 /dfs: dfs"));
}

TEST(DriveList, NamesTheMountsOfTheTableInItsOrder) {
    const PastedMountTable table(kSmallTable);
    std::vector<DriveInfo> drives, remote;
    DebugLog log;
    EXPECT_TRUE(DriveHelper::buildDriveList(drives, mdAllDriveGroup));
    EXPECT_THAT(show(drives), ElementsAre("2 /: ext4", "4 /mnt/nas: nfs4", "2 /home: vfat"));
    EXPECT_TRUE(log.has("DriveHelper::buildDriveList - [/dev/sdb1] [/home] [vfat]"));
    EXPECT_TRUE(DriveHelper::buildDriveList(remote, mdRemoteDriveGroup));
    EXPECT_THAT(show(remote), ElementsAre("4 /mnt/nas: nfs4"));
    std::vector<DriveInfo> listed;
    EXPECT_TRUE(fsListDrives(listed));
    EXPECT_EQ(show(listed), show(drives));
    setMountTablePath("/nonexistent/mtab");
    EXPECT_FALSE(fsListDrives(listed));
    EXPECT_TRUE(DriveHelper::buildDriveList(listed, mdAllDriveGroup));
    EXPECT_EQ(listed.size(), drives.size());
}

TEST(DriveList, TellsTypesFindsDrivesAndDropsTheEarlierOfEqualOnes) {
    const std::string text = "a /x ext4\nh:/ /x nfs\nh:/ /y:1 nfs\nb /y:1 ext4\nd /x ext4\n";
    const PastedMountTable table(text);
    for (const auto& [directory, type] :
         {std::pair(L"/x", DRIVE_LOCAL), {L"/X", DRIVE_UNKNOWN}, {L"/x/", DRIVE_UNKNOWN}})
        EXPECT_EQ(DriveHelper::getDriverType(directory), type) << directory;
    std::vector<DriveInfo> drives = drivesOf(text), more = drivesOf("a /x ext4\nb /z ext4\n");
    EXPECT_EQ(DriveHelper::checkDrive(drives, L"/y:", true), 2) << "by the start of its name";
    EXPECT_EQ(DriveHelper::checkDrive(drives, L"/Y:", true), -1);
    EXPECT_TRUE(DriveHelper::removeDriveListDuplicate(drives));
    const std::vector<std::string> later = {"4 /x: nfs", "4 /y:1: nfs", "2 /y:1: ext4",
                                            "2 /x: ext4"};
    EXPECT_EQ(show(drives), later);
    DriveHelper::appendDriveList(more, drives, true);
    EXPECT_EQ(drives.size(), 5U) << "what is there is not added";
}

TEST(DriveInfo, ComparesAndCopiesWhatMayBeNull) {
    const DriveInfo none(nullptr, DRIVE_REMOTE, nullptr);
    DriveInfo drive(L"/x:", DRIVE_LOCAL, L"ext4");
    EXPECT_FALSE(drive == none);
    drive = none;
    EXPECT_EQ(drive.getName(), nullptr);
    EXPECT_TRUE(drive == none);
    PathInfo path(L"/p", true);
    const PathInfo& alias = path;
    path.setPathInfo(alias);
    EXPECT_EQ(show(path), "/p+");
    path = PathInfo();
    EXPECT_TRUE(path == PathInfo(nullptr, false));
    EXPECT_FALSE(path == PathInfo(L"", false));
}

TEST(DrivePruning, KeepsIncludedAndDropsExcludedFileSystems) {
    const struct {
        FileSystemNames included, excluded;
        std::vector<std::string> kept;
    } cases[] = {
        {{L"EXT4", L"nfs4"}, {}, {"2 /: ext4", "4 /mnt/nas: nfs4"}},
        {{}, {L"VFat"}, {"2 /: ext4", "4 /mnt/nas: nfs4"}},
        {{L"ext4", L"vfat"}, {L"vfat"}, {"2 /: ext4"}},
        {{L"ext"}, {}, {}},
        {{}, {L"ext*"}, {"2 /: ext4", "4 /mnt/nas: nfs4", "2 /home: vfat"}},
    };
    for (const auto& [included, excluded, expected] : cases) {
        std::vector<DriveInfo> kept;
        DriveHelper::fileSystemDriveListPruning(drivesOf(kSmallTable), kept,
                                                {included.begin(), included.end()},
                                                {excluded.begin(), excluded.end()});
        EXPECT_EQ(show(kept), expected);
    }
}

TEST(DriveNormalisation, KeepsADistributedPairTogether) {
    const auto normalised = [](const std::string& table) {
        return show(normalisedDrivesOf(table));
    };
    for (const char* pair : {"x /d dfs\n", "x /d dfs\nx /d dfs\n", "a /d ext4\nx /d dfs\n"})
        EXPECT_THAT(normalised(pair), ElementsAre("4 /d: dfs", "2 /d: dfs")) << pair;
    for (const char* covered : {"x /d dfs\na /d ext4\n", "h:/ /d nfs\na /d ext4\n"})
        EXPECT_THAT(normalised(covered), ElementsAre("2 /d: ext4")) << covered;
}

}  // namespace
}  // namespace fscanner

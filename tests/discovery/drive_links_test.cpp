#include <gmock/gmock.h>

#include "fixtures.h"

namespace fscanner {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace stdfs = std::filesystem;

class DriveLinks : public testing::Test {
protected:
    DriveLinks() : root_(stdfs::canonical(directory_.path()).string()) {}

    void directory(const std::string& name) { stdfs::create_directories(root_ + name); }
    void link(const std::string& target, const std::string& name) {
        stdfs::create_symlink(target, root_ + name);
    }
    DriveInfo drive(const std::string& name, DriveType type = DRIVE_LOCAL) const {
        return DriveInfo(toWide(root_ + name + ":").c_str(), type, L"ext4");
    }
    /// The links of one drive, "@" for the root.
    std::vector<std::string> linksOf(const DriveInfo& found) const {
        std::vector<DriveInfo> links;
        DriveHelper::driveEnumerator(found, links, false);
        return shown(links);
    }
    std::vector<std::string> shown(const std::vector<DriveInfo>& links) const {
        std::vector<std::string> texts;
        for (std::string text : show(links)) {
            texts.push_back(text.replace(text.find(root_), root_.size(), "@"));
        }
        return texts;
    }
    bool checked(const DebugLog& log, const std::string& name) const {
        return log.has("DriveHelper::driveEnumerator - checking [" + root_ + name + "] path...");
    }

private:
    TemporaryDirectory directory_;

protected:
    std::string root_;
};

TEST_F(DriveLinks, NamesADriveWithoutLinks) {
    directory("/real/deep/mnt");
    link("real", "/relative");
    link(root_ + "/real/deep", "/absolute");
    link("../real/./deep", "/real/dots");
    link(root_ + "/relative", "/chained");
    link("mnt", "/real/deep/itself");
    EXPECT_THAT(linksOf(drive("/real/deep/mnt")), IsEmpty());
    EXPECT_THAT(linksOf(drive("/relative/deep/mnt")), ElementsAre("2 @/real/deep/mnt: ext4"));
    EXPECT_THAT(linksOf(drive("/absolute/mnt")), ElementsAre("2 @/real/deep/mnt: ext4"));
    EXPECT_THAT(linksOf(drive("/real/dots/mnt")), ElementsAre("2 @/real/deep/mnt: ext4"));
    EXPECT_THAT(linksOf(drive("/chained/deep")), ElementsAre("2 @/real/deep: ext4"));
    EXPECT_THAT(linksOf(drive("/real/deep/itself")), ElementsAre("2 @/real/deep/mnt: ext4"));
    // Two links in one path: each way to write it down leads to the same place.
    EXPECT_THAT(linksOf(drive("/relative/dots/mnt")),
                ElementsAre("2 @/real/dots/mnt: ext4", "2 @/real/deep/mnt: ext4"));
}

TEST_F(DriveLinks, LeadNowhereWithoutHarm) {
    link("loop", "/loop");
    link("grow/more", "/grow");
    link("gone", "/dangling");
    for (const char* name : {"/loop/m", "/grow/m", "/dangling/m", "/missing/m"}) {
        EXPECT_THAT(linksOf(drive(name)), IsEmpty()) << name;
    }
    DebugLog log;
    EXPECT_THAT(linksOf(DriveInfo()), IsEmpty());
    std::vector<DriveInfo> links;
    DriveHelper::buildExcludeLinkList({DriveInfo(nullptr, DRIVE_LOCAL, L"ext4")}, mdLocalDriveGroup,
                                      links);
    EXPECT_THAT(links, IsEmpty());
    const std::string line = "DriveHelper::driveEnumerator - path pointer is null\n";
    EXPECT_EQ(log.text(), line + line);
}

TEST_F(DriveLinks, StopAfterManyLevels) {
    std::string path;
    for (int level = 0; level < 40; ++level) {
        directory(path + "/d");
        link("d", path + "/l");
        path += "/d";
    }
    std::string linked;
    for (int level = 0; level < 40; ++level) linked += "/l";
    const std::vector<std::string> links = linksOf(drive(linked));
    EXPECT_GE(links.size(), 32U);
    EXPECT_LE(links.size(), 40U * 32U);
}

TEST_F(DriveLinks, NeverTouchWhatLiesBelowAnyRemoteMount) {
    directory("/nas/inner");
    link("inner", "/nas/remotelink");
    link("nas/remotelink", "/entry");
    link("nas", "/short");
    // A local mount on top of a remote one, and a link that leads into it.
    const std::vector<DriveInfo> drives = {drive("/nas", DRIVE_REMOTE), drive("/nas/remotelink"),
                                           drive("/entry/x")};
    DebugLog log;
    std::vector<DriveInfo> links;
    DriveHelper::buildExcludeLinkList(drives, mdLocalDriveGroup, links);
    EXPECT_THAT(shown(links), ElementsAre("2 @/nas/remotelink/x: ext4"));
    EXPECT_FALSE(checked(log, "/nas"));
    EXPECT_FALSE(checked(log, "/nas/remotelink"));
    // The mount itself is not touched, what lies above it is.
    EXPECT_THAT(linksOf(drive("/short", DRIVE_REMOTE)), IsEmpty());
    EXPECT_FALSE(checked(log, "/short"));
    EXPECT_THAT(linksOf(drive("/short/inner", DRIVE_REMOTE)), ElementsAre("4 @/nas/inner: ext4"));
}

TEST_F(DriveLinks, FollowTheMaskAndWhatIsPresent) {
    directory("/a/m");
    link("a", "/l");
    const std::vector<DriveInfo> drives = {drive("/l/m"), drive("/l/m"),
                                           drive("/l/m", DRIVE_REMOTE)};
    std::vector<DriveInfo> links;
    DriveHelper::buildExcludeLinkList(drives, mdRemoteDriveGroup, links);
    EXPECT_THAT(shown(links), ElementsAre("4 @/a/m: ext4"));
    DriveHelper::buildExcludeLinkList(drives, mdOtherDriveGroup, links);
    EXPECT_EQ(links.size(), 1U);
    DriveHelper::buildExcludeLinkList(drives, mdLocalDriveGroup, links);
    EXPECT_THAT(shown(links), ElementsAre("4 @/a/m: ext4", "2 @/a/m: ext4"));

    std::vector<DriveInfo> present = {drive("/l/m")};
    {
        DebugLog log;
        DriveHelper::driveEnumerator(drive("/l/m"), present, true);
        EXPECT_EQ(log.text(), "DriveHelper::driveEnumerator - check [" + root_ +
                                  "/l/m:] path for symbolik link...\n"
                                  "DriveHelper::driveEnumerator - path already present!\n");
    }
    EXPECT_EQ(present.size(), 1U);
    DriveHelper::driveEnumerator(drive("/l/m"), present, false);
    EXPECT_THAT(shown(present), Contains("2 @/a/m: ext4"));
}

}  // namespace
}  // namespace fscanner

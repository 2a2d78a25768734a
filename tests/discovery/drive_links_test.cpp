#include <gmock/gmock.h>

#include "fixtures.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

namespace stdfs = std::filesystem;

class DriveLinks : public testing::Test {
protected:
    void link(const std::string& target, const std::string& name) const {
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
        for (std::string text : show(links))
            texts.push_back(text.replace(text.find(root_), root_.size(), "@"));
        return texts;
    }

    const TemporaryDirectory directory_;
    const std::string root_ = stdfs::canonical(directory_.path()).string();
};

TEST_F(DriveLinks, NameADriveWithoutLinksAndLeadNowhereWithoutHarm) {
    stdfs::create_directories(root_ + "/real/deep/mnt");
    link("real", "/relative");
    link(root_ + "/real/deep", "/absolute");
    link("../real/./deep", "/real/dots");
    link(root_ + "/relative", "/chained");
    link("loop", "/loop");
    link("grow/more", "/grow");
    link("gone", "/dangling");
    for (const char* none : {"/real/deep/mnt", "/loop/m", "/grow/m", "/dangling/m", "/missing/m"})
        EXPECT_THAT(linksOf(drive(none)), IsEmpty()) << none;
    for (const char* one :
         {"/relative/deep/mnt", "/absolute/mnt", "/real/dots/mnt", "/chained/deep/mnt"})
        EXPECT_THAT(linksOf(drive(one)), ElementsAre("2 @/real/deep/mnt: ext4")) << one;
    // Two links in one path: each way to write it leads to the same place.
    EXPECT_THAT(linksOf(drive("/relative/dots/mnt")),
                ElementsAre("2 @/real/dots/mnt: ext4", "2 @/real/deep/mnt: ext4"));
    EXPECT_THAT(linksOf(DriveInfo()), IsEmpty());
    std::vector<DriveInfo> present = {drive("/relative/deep")};
    DriveHelper::driveEnumerator(present[0], present, true);
    EXPECT_EQ(present.size(), 1U) << "what is present is not looked at";
}

TEST_F(DriveLinks, NeverTouchWhatLiesBelowAnyRemoteMount) {
    stdfs::create_directories(root_ + "/nas/inner");
    link("inner", "/nas/remotelink");
    link("nas/remotelink", "/entry");
    // A local mount on top of a remote one, and a link that leads into it.
    std::vector<DriveInfo> links;
    const DebugLog log;
    DriveHelper::buildExcludeLinkList(
        {drive("/nas", DRIVE_REMOTE), drive("/nas/remotelink"), drive("/entry/x")},
        mdLocalDriveGroup, links);
    EXPECT_THAT(shown(links), ElementsAre("2 @/nas/remotelink/x: ext4"));
    for (const char* untouched : {"/nas", "/nas/remotelink"})
        EXPECT_FALSE(
            log.has("DriveHelper::driveEnumerator - checking [" + root_ + untouched + "] path..."));
}

}  // namespace
}  // namespace fscanner

// The links that lead to a drive: found where they are, and never by touching a remote mount.

#include <gmock/gmock.h>

#include <filesystem>

#include "fixtures.h"

namespace fscanner {
namespace {

namespace stdfs = std::filesystem;
using testing::ElementsAre;

TEST(DriveLinks, NameADriveWithoutLinksAndTouchNothingRemote) {
    const TemporaryDirectory directory;
    const std::string root = stdfs::canonical(directory.path()).string();
    const auto drive = [&](const std::string& name, DriveType type = DRIVE_LOCAL) {
        return DriveInfo(toWide(root + name + ":").c_str(), type, L"ext4");
    };
    const auto shown = [&](const std::vector<DriveInfo>& links) {
        std::vector<std::string> texts;
        for (std::string text : show(links))
            texts.push_back(text.replace(text.find(root), root.size(), "@"));
        return texts;
    };
    stdfs::create_directories(root + "/real/deep/mnt");
    stdfs::create_directories(root + "/nas/inner");
    for (const auto& [target, name] : {std::pair<std::string, const char*>("real", "/relative"),
                                       {"../real/./deep", "/real/dots"},
                                       {root + "/relative", "/chained"},
                                       {"loop", "/loop"},
                                       {"gone", "/dangling"},
                                       {"inner", "/nas/remotelink"},
                                       {"nas/remotelink", "/entry"}})
        stdfs::create_symlink(target, root + name);
    const std::string deep = "2 @/real/deep/mnt: ext4";
    // Two links in one path: each way to write it down leads to the same place.
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"/real/deep/mnt", {}},
        {"/loop/m", {}},
        {"/dangling/m", {}},
        {"/chained/deep/mnt", {deep}},
        {"/relative/dots/mnt", {"2 @/real/dots/mnt: ext4", deep}},
    };
    for (const auto& [name, expected] : cases) {
        std::vector<DriveInfo> links;
        DriveHelper::driveEnumerator(drive(name), links, false);
        EXPECT_EQ(shown(links), expected) << name;
    }
    // A local mount on top of a remote one, and a link that leads into it.
    std::vector<DriveInfo> links;
    const DebugLog log;
    DriveHelper::buildExcludeLinkList(
        {drive("/nas", DRIVE_REMOTE), drive("/nas/remotelink"), drive("/entry/x")},
        mdLocalDriveGroup, links);
    EXPECT_THAT(shown(links), ElementsAre("2 @/nas/remotelink/x: ext4"));
    EXPECT_FALSE(
        log.has("DriveHelper::driveEnumerator - checking [" + root + "/nas/remotelink] path..."));
}

}  // namespace
}  // namespace fscanner

#include "fscanner/discovery/mountlist.h"

#include <gmock/gmock.h>
#include <mntent.h>

#include <array>
#include <cstdio>
#include <random>

#include "fixtures.h"

namespace fscanner {
namespace {

std::string show(const MountEntry& entry) {
    return std::string(entry.getDevName()) + "|" + entry.getMountDir() + "|" +
           entry.getFileSystemType() + (entry.isDummy() ? " dummy" : "") +
           (entry.isRemote() ? " remote" : "");
}

std::vector<std::string> parsed(const std::string& table) {
    std::vector<std::string> lines;
    for (const MountEntry& entry : mountsOf(table)) lines.push_back(show(entry));
    return lines;
}

TEST(MountTable, TellsWhatALineIs) {
    const struct {
        const char* line;
        std::vector<std::string> mounts;
    } cases[] = {
        {"/dev/sda1 / ext4 rw 0 0\n", {"/dev/sda1|/|ext4"}},
        {"server:/export /nas nfs4 rw 0 0\n", {"server:/export|/nas|nfs4 remote"}},
        {"server /nas nfs rw 0 0\n", {"server|/nas|nfs remote"}},
        {"server /nas nfs4 rw 0 0\n", {"server|/nas|nfs4"}},
        {"//srv/share /cifs cifs rw 0 0\n", {"//srv/share|/cifs|cifs"}},
        {"//srv/share /smb smbfs rw 0 0\n", {"//srv/share|/smb|smbfs remote"}},
        {"/srv/share /smb smbfs rw 0 0\n", {"/srv/share|/smb|smbfs"}},
        {"srv /ncp ncpfs rw 0 0\n", {"srv|/ncp|ncpfs remote"}},
        {"/dev/disk/by-path/pci-0000:00 /d ext4\n",
         {"/dev/disk/by-path/pci-0000:00|/d|ext4 remote"}},
        {"systemd-1 /auto autofs rw 0 0\n", {"systemd-1|/auto|autofs dummy"}},
        {"x /old ignore rw 0 0\n", {"x|/old|ignore dummy"}},
        {"x /new autofs2 rw 0 0\n", {"x|/new|autofs2"}},
        {"# comment\n\n   \n  # another\none\none two\none two \na b c", {"a|b|c"}},
    };
    for (const auto& [line, mounts] : cases) EXPECT_EQ(parsed(line), mounts);
}

/// The mounts that the system's own reader finds in a table.
std::vector<std::string> systemParsed(const std::string& path) {
    std::vector<std::string> lines;
    FILE* file = setmntent(path.c_str(), "r");
    std::array<char, 4096> buffer;
    mntent entry;
    while (getmntent_r(file, &entry, buffer.data(), static_cast<int>(buffer.size()))) {
        const bool dummy = entry.mnt_type == std::string("autofs");
        lines.push_back(std::string(entry.mnt_fsname) + "|" + entry.mnt_dir + "|" + entry.mnt_type +
                        (dummy ? " dummy" : ""));
    }
    endmntent(file);
    return lines;
}

TEST(MountTable, ReadsFieldsAsTheSystemDoes) {
    const std::vector<std::string> pieces = {"a",     "/",     "#",     "\\",
                                             "\\040", "\\011", "\\012", "\\134",
                                             "\\043", "\\04",  "\\\\",  "\xc3\xa4"};
    const std::vector<std::string> options = {"rw", "rw,ignore", "ignored", "ignore=1,ro"};
    std::mt19937 random(20);
    const auto pick = [&](const std::vector<std::string>& list) {
        return list[random() % list.size()];
    };
    std::string table;
    for (int line = 0; line < 2000; ++line) {
        for (int field = 0; field < 2; ++field) {
            for (auto length = 1 + random() % 6; length > 0; --length) table += pick(pieces);
            table += pick({" ", "\t", "  \t"});
        }
        table += pick({"ext4", "tmpfs", "xfs", "autofs"}) + " " + pick(options) + " 0 0\n";
    }
    TemporaryDirectory directory;
    writeWholeFile(directory / "mtab", table);
    const std::vector<std::string> expected = systemParsed(directory / "mtab");
    ASSERT_GT(expected.size(), 1000U);
    EXPECT_EQ(parsed(table), expected);
}

TEST(MountTable, FailsWhenItCannotBeRead) {
    TemporaryDirectory directory;
    for (const std::string& path : {directory / "missing", directory.path().string()}) {
        setMountTablePath(path.c_str());
        std::vector<MountEntry> mounts;
        EXPECT_FALSE(MountTableManager::getMountEntryList(mounts)) << path;
        EXPECT_TRUE(mounts.empty());
    }
    setMountTablePath(nullptr);
    EXPECT_STREQ(mountTablePath(), "/etc/mtab");
}

TEST(MountEntry, KeepsItsTextsApartFromItsCopies) {
    MountEntry entry;
    entry.setRemote(true);
    // A copy without all three texts is not a mount, and takes no flags.
    EXPECT_FALSE(MountEntry(entry).isRemote());
    EXPECT_THAT(std::vector({entry.setDevName("a:/"), entry.setMountDir("/m"),
                             entry.setFileSystemType("nfs")}),
                testing::Each(true));
    MountEntry copy = entry;
    EXPECT_TRUE(entry.setMountDir("/other"));
    EXPECT_FALSE(entry.setMountDir(nullptr));
    EXPECT_EQ(show(copy), "a:/|/m|nfs remote");
    EXPECT_EQ(show(entry), "a:/|/other|nfs remote");
}

TEST(MountAccess, OpensPlaceholdersOnlyAndReadsWhatLiesInThem) {
    const TemporaryDirectory directory;
    const std::string placeholder = directory / "auto", plain = directory / "plain";
    std::filesystem::create_directories(placeholder + "/sub");
    std::filesystem::create_directory(plain);
    const PastedMountTable table("x " + placeholder + " autofs\nx " + plain + " ext4\n");
    const DebugLog log;
    accessToAllMountPaths();
    EXPECT_TRUE(log.has("accessToAllMountPaths - path '" + placeholder + "' accessed"));
    EXPECT_FALSE(log.has("accessToAllMountPaths - path '" + plain + "' accessed"));
    const std::unique_ptr<DIR, int (*)(DIR*)> opened(opendir(placeholder.c_str()), closedir);
    accessToAllMountPathsRead(opened.get(), placeholder.c_str());
    EXPECT_TRUE(
        log.has("accessToAllMountPathsRead - subdirectory '" + placeholder + "/sub' accessed"));
}

}  // namespace
}  // namespace fscanner

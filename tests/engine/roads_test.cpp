// The road of a query from a mount table to its results, over a table as machines have
// it: mounts come before those that hold them, one is listed twice, one hides another,
// a local disk lies below a remote mount, and an automounter's placeholder is not entered.

#include <gmock/gmock.h>
#include <unistd.h>

#include "discovery/fixtures.h"
#include "engine/cache_user.h"
#include "fscanner/engine/cache_query.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "support/child_process.h"
#include "support/current_directory.h"
#include "support/private_mounts.h"

namespace fscanner {
namespace {

using testing::ElementsAre;

constexpr const char* kMountTable =
    "sysfs /sys sysfs rw,nosuid,nodev,noexec,relatime 0 0\n"
    "proc /proc proc rw,nosuid,nodev,noexec,relatime 0 0\n"
    "udev /dev devtmpfs rw,nosuid,relatime,size=8127172k,mode=755 0 0\n"
    "devpts /dev/pts devpts rw,nosuid,noexec,relatime,gid=5,mode=620 0 0\n"
    "tmpfs /run tmpfs rw,nosuid,noexec,relatime,size=1629552k,mode=755 0 0\n"
    "/dev/sda2 / ext4 rw,relatime,errors=remount-ro 0 0\n"
    "tmpfs /run/lock tmpfs rw,nosuid,nodev,noexec,relatime,size=5120k 0 0\n"
    "devpts /dev/pts devpts rw,nosuid,noexec,relatime,mode=600,ptmxmode=000 0 0\n"
    "systemd-1 /misc autofs rw,relatime,fd=29,pgrp=1,timeout=0 0 0\n"
    "overlay /var/lib/box/merged overlay rw,lowerdir=/l1:/l2,upperdir=/u,workdir=/w 0 0\n"
    "/dev/sdb1 /mnt/usb exfat rw,relatime 0 0\n"
    "/dev/sdc1 /mnt/usb vfat rw,relatime 0 0\n"
    "/dev/sdd1 /mnt/nfs/disk ext4 rw,relatime 0 0\n"
    "filer:/export /mnt/nfs nfs4 rw,relatime,vers=4.2,addr=10.0.0.1 0 0\n"
    "//srv/share /mnt/share cifs rw,relatime,vers=3.1.1 0 0\n"
    "/dev/sda1 /boot vfat rw,relatime 0 0\n"
    "/dev/sda3 /home ext4 rw,relatime 0 0\n";

/// A query in short: entries as the tests of discovery write them, "+" for recursive.
struct Asked {
    std::vector<std::string> include;
    std::vector<std::string> exclude = {};
    const wchar_t* notFileSystem = nullptr;
    bool caseSensitive = true;

    FsQuery& into(FsQuery& query) const {
        for (const PathInfo& path : pathsOf(include))
            query.addIncludePath(path.getPathName(), path.getRecursive());
        for (const PathInfo& path : pathsOf(exclude))
            query.addExcludePath(path.getPathName(), path.getRecursive());
        if (notFileSystem) query.addExcludeFileSystem(notFileSystem);
        query.setCaseSensitive(caseSensitive ? 0 : 1);
        query.setQuery(L"[FILENAME]==\"*.f\"");
        return query;
    }
};

/// The pairs of one plan after the other.
class KeptPairs {
public:
    std::vector<std::string> operator()(const Asked& asked) {
        FsQuery query;
        const auto plan = kept_.refresh(asked.into(query));
        return plan ? show(plan->pairs()) : std::vector<std::string>{"-"};
    }

private:
    KeptPlan kept_;
};

bool wasResolved(const DebugLog& log) {
    return log.has("PathHelper::pathResolver - exit.");
}

TEST(KeptPlan, IsResolvedAgainOnlyWhenTheQueryOrTheTableChanges) {
    KeptPairs pairsOf;
    setMountTablePath("/nonexistent/mtab");
    EXPECT_THAT(pairsOf({{"/mnt+"}}), ElementsAre("-"));
    const std::vector<std::string> both = {"/mnt+ on /", "/mnt/b+ on /mnt/b"};
    {
        const PastedMountTable table("a / ext4\nb /mnt/b vfat\n");
        EXPECT_EQ(pairsOf({{"/mnt+"}}), both);
        const DebugLog log;
        EXPECT_EQ(pairsOf({{"/mnt+"}}), both);
        EXPECT_FALSE(wasResolved(log));
        EXPECT_THAT(pairsOf({{"/mnt+"}, {}, L"vfat"}), ElementsAre("/mnt+ on /"));
        EXPECT_THAT(pairsOf({{"/mnt/b"}, {}, L"vfat"}), ElementsAre());
        EXPECT_THAT(pairsOf({{"/mnt/b"}}), ElementsAre("/mnt/b on /mnt/b"));
        EXPECT_EQ(pairsOf({{"/mnt+"}}), both);
    }
    setMountTablePath("/nonexistent/mtab");
    EXPECT_THAT(pairsOf({{"/mnt+"}}), ElementsAre("-"));
    // What is not mounted any more would be missing in the drive above it.
    const PastedMountTable table("a / ext4\n");
    EXPECT_THAT(pairsOf({{"/mnt+"}}), ElementsAre("/mnt+ on /"));
}

TEST(KeptPlan, FollowsTheCurrentDirectoryAndLinks) {
    const TempTree tree;
    for (const char* directory : {"a/x", "b/x"}) tree.directory(directory);
    std::filesystem::create_symlink("a", tree.path("l"));
    const PastedMountTable table("a / ext4\n");
    KeptPairs pairsOf;
    {
        const CurrentDirectory here(tree.path("a"));
        EXPECT_THAT(pairsOf({{"x+"}}), ElementsAre(tree.path("a/x") + "+ on /"));
    }
    {
        const CurrentDirectory here(tree.path("b"));
        EXPECT_THAT(pairsOf({{"x+"}}), ElementsAre(tree.path("b/x") + "+ on /"));
    }
    EXPECT_THAT(pairsOf({{tree.path("l")}}), ElementsAre(tree.path("a") + " on /"));
    std::filesystem::remove(tree.path("l"));
    std::filesystem::create_symlink("b", tree.path("l"));
    EXPECT_THAT(pairsOf({{tree.path("l")}}), ElementsAre(tree.path("b") + " on /"));
}

// ---- The same table over mounts that are there ------------------------------

/// A mount, and the file that is planted in it.
struct Mounted {
    const char* at;
    const char* file;
};

/// In an order in which they can be mounted. Of two at one place the second hides the
/// first.
constexpr Mounted kMounts[] = {
    {"/sys", "/sys/kernel/a.f"},       {"/proc", "/proc/1/b.f"},
    {"/dev", "/dev/disk/c.f"},         {"/dev/pts", "/dev/pts/hidden.f"},
    {"/dev/pts", "/dev/pts/d.f"},      {"/run", "/run/e.f"},
    {"/run/lock", "/run/lock/f.f"},    {"/var/lib/box/merged", "/var/lib/box/merged/etc/g.f"},
    {"/mnt/usb", "/mnt/usb/hidden.f"}, {"/mnt/usb", "/mnt/usb/photos/h.f"},
    {"/mnt/nfs", "/mnt/nfs/i.f"},      {"/mnt/nfs/disk", "/mnt/nfs/disk/j.f"},
    {"/mnt/share", "/mnt/share/k.f"},  {"/boot", "/boot/grub/l.f"},
    {"/home", "/home/u/m.f"},
};

void plant(const std::string& path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    writeWholeFile(path, "");
}

/// Makes `root` this process's root, with a system in it that the table describes.
bool enterSystem(const std::string& root) {
    if (!enterPrivateMounts() || !mountMemory("none", root, "size=64m") ||
        chroot(root.c_str()) != 0 || chdir("/") != 0)
        return false;
    for (const char* file : {"/n.f", "/boot/hidden.f", "/mnt/USB/o.f", "/misc/p.f"}) plant(file);
    for (const Mounted& mounted : kMounts) {
        if (!mountMemory("none", mounted.at)) return false;
        plant(mounted.file);
    }
    for (const char* file :
         {"/home/u/deep/q.f", "/home/u/private/r.f", "/home/v/s.f", "/home/U/t.f"})
        plant(file);
    std::filesystem::create_directory("/etc");
    writeWholeFile("/etc/mtab", kMountTable);
    return true;
}

struct RoadCase {
    const char* what;
    Asked asked;
    std::vector<std::string> files;  // sorted
};

std::vector<RoadCase> roadCases() {
    const std::vector<std::string> homes = {"/home/U/t.f", "/home/u/deep/q.f", "/home/u/m.f",
                                            "/home/u/private/r.f", "/home/v/s.f"};
    const std::vector<std::string> mnt = {"/mnt/USB/o.f", "/mnt/nfs/disk/j.f", "/mnt/share/k.f",
                                          "/mnt/usb/photos/h.f"};
    const std::vector<std::string> early = {"/boot/grub/l.f", "/dev/disk/c.f", "/dev/pts/d.f"};
    const std::vector<std::string> late = {
        "/n.f",          "/proc/1/b.f",     "/run/e.f",
        "/run/lock/f.f", "/sys/kernel/a.f", "/var/lib/box/merged/etc/g.f"};
    const auto all = [](const std::vector<std::vector<std::string>>& parts) {
        std::vector<std::string> files;
        for (const auto& part : parts) files.insert(files.end(), part.begin(), part.end());
        std::sort(files.begin(), files.end());
        return files;
    };
    return {
        {"the whole system", {{"/+"}}, all({early, homes, mnt, late})},
        {"without its vfat mounts",
         {{"/+"}, {}, L"vfat"},
         all({{"/dev/disk/c.f", "/dev/pts/d.f"},
              homes,
              {"/mnt/USB/o.f", "/mnt/nfs/disk/j.f", "/mnt/share/k.f"},
              late})},
        {"what is remote", {{"$remote::/mnt+"}}, {"/mnt/nfs/i.f"}},
        {"all of a part", {{"$all::/mnt+"}}, all({mnt, {"/mnt/nfs/i.f"}})},
        {"a local exclusion spares remote drives", {{"$all::/mnt+"}, {"/mnt+"}}, {"/mnt/nfs/i.f"}},
        {"an exclusion with the mounts below", {{"$all::/mnt+"}, {"$all::/mnt+"}}, {}},
        {"one home", {{"/home/u"}, {"/home/u/private+"}}, {"/home/u/m.f"}},
        {"overlapping paths", {{"/home+", "/home/u+", "/home/u"}}, homes},
        {"a mount, not recursive", {{"/mnt/share", "/dev"}}, {"/mnt/share/k.f"}},
        // The case mode is that of exclusions: searched paths and mount points are places.
        {"mounts without case",
         {{"/mnt+", "/HOME+"}, {"/MNT/SHARE+"}, nullptr, false},
         {"/mnt/USB/o.f", "/mnt/nfs/disk/j.f", "/mnt/usb/photos/h.f"}},
    };
}

/// Directly, into a cache, from it, and from it as a monitored one. Prints what
/// differs, because assertions of a child are lost.
int wrongAnswers(const RoadCase& c, const std::string& directory,
                 const std::vector<std::string>& ways = {"direct", "cold", "warm", "monitored"}) {
    std::filesystem::create_directories(directory);
    FsQuery query;
    c.asked.into(query);
    int wrong = 0;
    for (const std::string& way : ways) {
        CollectingWriter writer;
        int status = 0;
        if (way == "direct") {
            status = fsScanQuery(writer, query, 60000);
        } else {
            FS_Cache cache(L"d", L"f", toWide(directory).c_str(), way == "monitored", false, true);
            status = cache.create(0, FS_CACHE_OPEN_ALWAYS);
            if (status == 0) status = cache.executeQuery(writer, query, 60000, 3600);
            cache.close();
        }
        if (status == 0 && writer.sorted() == c.files) continue;
        ++wrong;
        fprintf(stderr, "%s, %s: status %d, found:\n", c.what, way.c_str(), status);
        for (const std::string& path : writer.sorted()) fprintf(stderr, "  %s\n", path.c_str());
    }
    return wrong;
}

TEST(QueryRoads, FindTheSameInEveryWayOverRealMounts) {
    const TemporaryDirectory directory;
    const int wrong = inChild([&] {
        if (!enterSystem(directory.path())) return notAllowed;
        int count = 0;
        // Each with a cache of its own, and with one that the earlier ones have filled.
        for (const RoadCase& c : roadCases()) {
            count += wrongAnswers(c, std::string("/cache/") + c.what);
            count += wrongAnswers(c, "/cache/shared");
        }
        // What came since is found where a cache has no part.
        for (const char* file : {"/late.f", "/mnt/nfs/late.f"}) plant(file);
        const std::vector<RoadCase> later = {
            {"later, remote", {{"$remote::/+"}}, {"/mnt/nfs/i.f", "/mnt/nfs/late.f"}},
            {"later, local", {{"$all::/"}}, {"/n.f"}},
        };
        for (const RoadCase& c : later) count += wrongAnswers(c, "/cache/shared", {"warm"});
        return std::min(count, notAllowed - 1);
    });
    if (wrong == notAllowed) GTEST_SKIP() << "no private mounts on this machine";
    EXPECT_EQ(wrong, 0);
}

// ---- When a remote scan ends early ------------------------------------------

class Stopping : public FsScanObserver {
public:
    Stopping() { fsSetScanObserver(this); }
    ~Stopping() override { fsSetScanObserver(nullptr); }
    bool progress(const FsScanProgress&) override { return false; }
};

TEST(QueryRoads, AMonitoredQueryLooksAtTheTimeBehindLocalPairsOnly) {
    const TempTree tree;
    for (const char* name : {"f", "s/f", "y/f", "z/f"}) tree.file(name);
    for (int i = 0; i < 1100; ++i) tree.file("r/" + std::to_string(i));
    const PastedMountTable table("/dev/a / ext4\nfiler:/r " + tree.path("r") + " nfs4\nfiler:/s " +
                                 tree.path("s") + " nfs4\n/dev/y " + tree.path("y") +
                                 " xfs\n/dev/z " + tree.path("z") + " xfs\n");
    FsQuery query;
    query.addIncludePath((L"$all::" + tree.wide()).c_str(), true);
    query.setQuery(L"[FILENAME]==\"f\"");
    const Stopping observer;
    CollectingWriter writer;
    const CacheUser monitored(false, true);
    EXPECT_EQ(monitored.query(writer, query), FS_CACHE_QUERY_TIMED_OUT);
    EXPECT_THAT(writer.paths, ElementsAre(tree.path("f"), tree.path("s/f"), tree.path("y/f")));
    CollectingWriter none;
    EXPECT_EQ(CacheUser().query(none, query), FS_CACHE_QUERY_TIMED_OUT);
    EXPECT_THAT(none.paths, testing::IsEmpty());
}

}  // namespace
}  // namespace fscanner

// Mount tables as machines and strangers have them, and a remote mount that never
// answers: a search that leaves it out does not wait for it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include "discovery/fixtures.h"

#include "fscanner/fs/fs_explain.h"
#include "hostile/cache_image.h"
#include "support/child_process.h"
#include "support/private_mounts.h"

namespace fscanner {
namespace {

// A file system whose server never reads its requests. The descriptor keeps it alive.
int mountTheDead(const std::string& directory) {
    const int server = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (server < 0) return -1;
    const std::string options =
        "fd=" + std::to_string(server) + ",rootmode=40000,user_id=0,group_id=0";
    return ::mount("dead:/export", directory.c_str(), "fuse", 0, options.c_str()) == 0 ? server
                                                                                       : -1;
}

int found(FsQuery& query, const CacheUser& cache, const std::vector<std::string>& expected) {
    CollectingWriter direct, built, cached;
    if (fsScanQuery(direct, query, kMinute) != 0 || direct.sorted() != expected) return 2;
    if (cache.query(built, query) != 0 || built.sorted() != expected) return 3;
    if (cache.query(cached, query) != 0 || cached.sorted() != expected) return 4;
    FsQueryReport plan;
    return fsExplainQuery(query, plan) ? 0 : 5;
}

TEST(HostileMounts, ADeadRemoteMountIsNotTouchedUnlessItIsAskedFor) {
    const TempTree tree;
    const CacheUser cache;
    for (const char* dead : {"dead", "z/dead"}) tree.directory(dead);
    for (const char* file : {"a/f", "z/f", "z/y/f"}) tree.file(file);
    writeWholeFile(tree.path("z/f"), "%PDF-1.4\n");
    const std::vector<std::string> expected = {tree.path("a/f"), tree.path("z/f"),
                                               tree.path("z/y/f")};
    const int status = inChild([&] {
        if (!enterPrivateMounts()) return notAllowed;
        if (mountTheDead(tree.path("dead")) < 0 || mountTheDead(tree.path("z/dead")) < 0)
            return notAllowed;
        setMountTablePath("/proc/self/mounts");
        // Whoever waits for the dead is ended.
        ::alarm(30);
        FsQuery local, byFileSystem, byPath, below;
        local.addIncludePath((L"$local::*:" + tree.wide()).c_str(), true);
        if (const int wrong = found(local, cache, expected)) return wrong;
        byFileSystem.addIncludePath((L"$all::*:" + tree.wide()).c_str(), true);
        byFileSystem.addExcludeFileSystem(L"fuse");
        if (const int wrong = found(byFileSystem, cache, expected)) return 10 + wrong;
        byPath.addIncludePath((L"$all::*:" + tree.wide()).c_str(), true);
        for (const char* dead : {"dead", "z/dead"})
            byPath.addExcludePath((L"$all::*:" + tree.wide(dead)).c_str(), true);
        if (const int wrong = found(byPath, cache, expected)) return 20 + wrong;
        // Also below it, where the way leads through a mount that answers.
        below.addIncludePath((L"$local::*:" + tree.wide("z/y")).c_str(), true);
        if (const int wrong = found(below, cache, {tree.path("z/y/f")})) return 30 + wrong;
        // The program that tells types is not sent there either.
        local.setQuery(L"type(path([PATHID],[FILENAME]),\"PDF\")==1");
        if (const int wrong = found(local, cache, {tree.path("z/f")})) return 50 + wrong;
        // It is dead indeed: who asks for it waits.
        byPath.clearExcludePaths();
        const bool waits = inChild([&] {
                               ::alarm(1);
                               return found(byPath, cache, expected);
                           }) == -1;
        return waits ? 0 : 40;
    });
    if (status == notAllowed) GTEST_SKIP() << "no private mounts or no FUSE on this machine";
    EXPECT_EQ(status, 0) << "-1: it hung";
}

TEST(HostileMounts, StackedMountsShowTheTopAlone) {
    const TempTree tree;
    const CacheUser cache;
    tree.file("m/bottom");
    const int status = inChild([&] {
        if (!enterPrivateMounts()) return notAllowed;
        for (const char* name : {"m/middle", "m/top"}) {
            if (!mountMemory("none", tree.path("m"))) return notAllowed;
            tree.file(name);
        }
        setMountTablePath("/proc/self/mounts");
        FsQuery query;
        query.addIncludePath((L"$all::*:" + tree.wide()).c_str(), true);
        return found(query, cache, {tree.path("m/top")});
    });
    if (status == notAllowed) GTEST_SKIP() << "no private mounts on this machine";
    EXPECT_EQ(status, 0);
}

std::string lines(int count, const std::string& from, const std::string& to) {
    std::string table;
    for (int i = 0; i < count; ++i) table += from + std::to_string(i) + to;
    return table;
}

TEST(HostileMounts, TablesOfEveryKindGiveDrives) {
    const std::string root = "/dev/sda / ext4 rw 0 0\n";
    struct Case {
        const char* what;
        std::string table;
        std::size_t drives;
        std::size_t remoteBelowRoot;
    };
    const Case cases[] = {
        {"empty", "", 0, 0},
        {"cut in a field", root + "server:/x /nas nf", 2, 1},
        {"escapes of every kind", root + "s:\\040 /a\\040\\011\\012\\134\\043b nfs rw\n", 2, 1},
        {"a directory that is no path", root + "s:x nas nfs rw\n", 2, 0},
        {"the same mount again and again", root + lines(3000, "s:/x /nas nfs rw 0 ", "\n"), 2, 1},
        {"stacked mounts of two kinds", root + "d /m xfs rw\ns:/x /m nfs rw\n", 2, 1},
        {"the other way round", root + "s:/x /m nfs rw\nd /m ext4 rw\n", 2, 0},
        {"thousands of mounts", root + lines(3000, "s:/x /nas/", " nfs rw 0 0\n"), 3001, 3000},
        {"a path of a mebibyte", root + "s:/x /" + std::string(1 << 20, 'p') + " nfs rw\n", 2, 1},
        {"carriage returns", "/dev/sda / ext4 rw 0 0\r\ns:/x /nas nfs rw\r\n", 2, 1},
        {"zeros", root + std::string(4096, '\0') + "\n" + root, 1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::vector<DriveInfo> drives = normalisedDrivesOf(c.table);
        EXPECT_EQ(drives.size(), c.drives);
        const ResolvedSearch local(drives, {"$local::/+"});
        EXPECT_EQ(local.pairs.size(), c.drives == 0 ? 0U : 1U);
        if (local.pairs.empty()) continue;
        std::vector<PathInfo> exclusions;
        PathHelper::buildExcludeList(drives, local.pairs[0], exclusions);
        EXPECT_EQ(exclusions.size(), c.remoteBelowRoot);
        EXPECT_EQ(ResolvedSearch(drives, {"$remote::/+"}).pairs.size(), c.remoteBelowRoot);
    }
}

}  // namespace
}  // namespace fscanner

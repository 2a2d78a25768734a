// Mount tables as found on real machines or made by attackers, and a remote mount that never
// answers: a search that leaves it out does not wait for it.

#include <fcntl.h>
#include <linux/auto_fs4.h>
#include <sys/ioctl.h>

#include "discovery/fixtures.h"

#include "fscanner/fs/fs_explain.h"
#include "hostile/cache_image.h"
#include "support/dead_mount.h"

namespace fscanner {
namespace {

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
    withPrivateMounts([&] {
        if (mountDead("dead:/export", tree.path("dead")) < 0 ||
            mountDead("dead:/export", tree.path("z/dead")) < 0)
            return kNotAllowed;
        setMountTablePath("/proc/self/mounts");
        // A process that waits for the dead mount is ended.
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
        // Also below it, where the path leads through a mount that answers.
        below.addIncludePath((L"$local::*:" + tree.wide("z/y")).c_str(), true);
        if (const int wrong = found(below, cache, {tree.path("z/y/f")})) return 30 + wrong;
        // The program that finds types does not read it either.
        local.setQuery(L"type(path([PATHID],[FILENAME]),\"PDF\")==1");
        if (const int wrong = found(local, cache, {tree.path("z/f")})) return 50 + wrong;
        // It is really dead: a process that reads it waits.
        byPath.clearExcludePaths();
        const bool waits = inChild([&] {
                               ::alarm(1);
                               return found(byPath, cache, expected);
                           }) == -1;
        return waits ? 0 : 40;
    });
}

TEST(HostileMounts, AreFoundBelowTheLinkThatTheTableNamesThemBy) {
    const TempTree tree;
    const CacheUser cache;
    tree.file("o/real/m/f");
    tree.link("o/real", "link");
    const PastedMountTable table("/dev/a / ext4\n/dev/b " + tree.path("link/m") + " xfs\n");
    const std::wstring above = tree.wide("o"), real = tree.wide("o/real/m"),
                       linked = tree.wide("link/m");
    for (const std::wstring& entry :
         {above, real, linked, real + L":" + above, linked + L":" + above}) {
        FsQuery query;
        query.addIncludePath(entry.c_str(), true);
        EXPECT_EQ(found(query, cache, {tree.path("o/real/m/f")}), 0) << toMultibyte(entry);
    }
}

// ---- Automounters -----------------------------------------------------------

/// An automounter. It answers nothing unless it is told to.
class Automounter {
public:
    Automounter() : group_(::getpgrp()) {
        if (::pipe2(pipe_, O_CLOEXEC) != 0) pipe_[0] = pipe_[1] = -1;
    }
    bool mount(const std::string& directory, const char* kind) const {
        const std::string options = "fd=" + std::to_string(pipe_[1]) +
                                    ",pgrp=" + std::to_string(group_) + ",minproto=5,maxproto=5," +
                                    kind;
        return ::mount("map", directory.c_str(), "autofs", 0, options.c_str()) == 0;
    }
    /// From now on the automounter serves this process.
    static bool leave() { return ::setpgid(0, 0) == 0; }
    /// The mounts that it was asked for since.
    std::vector<std::string> asked() const {
        ::fcntl(pipe_[0], F_SETFL, O_NONBLOCK);
        std::vector<std::string> names;
        autofs_v5_packet packet;
        while (receive(packet)) names.push_back(packet.name);
        return names;
    }
    /// Starts a process that mounts memory with a file "f" on each key of the map at
    /// `directory` that it is asked for. It is the caller's to end.
    pid_t serve(const std::string& directory) const {
        const int map = ::open(directory.c_str(), O_RDONLY | O_CLOEXEC);
        const pid_t server = ::fork();
        if (server != 0) return server;
        autofs_v5_packet packet;
        while (receive(packet)) {
            const std::string key = directory + "/" + packet.name;
            if (mountMemory("none", key)) writeWholeFile(key + "/f", "");
            ::ioctl(map, AUTOFS_IOC_READY, packet.wait_queue_token);
        }
        ::_exit(0);
    }

private:
    bool receive(autofs_v5_packet& packet) const {
        return ::read(pipe_[0], &packet, sizeof packet) == sizeof packet;
    }

    pid_t group_;
    int pipe_[2];
};

TEST(HostileMounts, AnAutomounterIsAskedForWhatIsSearchedAlone) {
    const TempTree tree;
    const CacheUser cache;
    for (const char* file : {"a/f", "z/f"}) tree.file(file);
    for (const char* directory : {"map", "direct", "other"}) tree.directory(directory);
    const std::vector<std::string> files = {tree.path("a/f"), tree.path("z/f")};
    withPrivateMounts([&] {
        const Automounter automounter;
        if (!automounter.mount(tree.path("map"), "indirect") ||
            !automounter.mount(tree.path("direct"), "direct") ||
            !automounter.mount(tree.path("other"), "direct"))
            return kNotAllowed;
        // A map that can be browsed.
        for (const char* key : {"map/host", "map/host2"}) tree.directory(key);
        if (!Automounter::leave()) return kNotAllowed;
        setMountTablePath("/proc/self/mounts");
        ::alarm(30);
        const auto query = [&](FsQuery& asked, const std::string& below) -> FsQuery& {
            asked.addIncludePath((L"$all::*:" + tree.wide(below)).c_str(), true);
            return asked;
        };
        FsQuery elsewhere, above, map, key, everything;
        if (const int wrong = found(query(elsewhere, "a"), cache, {files[0]})) return wrong;
        query(above, "").addExcludeFileSystem(L"autofs");
        if (const int wrong = found(above, cache, files)) return 10 + wrong;
        // Its directories exist, and nobody enters them.
        if (const int wrong = found(query(map, "map"), cache, {})) return 20 + wrong;
        if (!automounter.asked().empty()) return 30;
        const auto waits = [&](FsQuery& asked) {
            return inChild([&] {
                       ::alarm(1);
                       return found(asked, cache, {});
                   }) == -1;
        };
        if (!waits(query(key, "map/host"))) return 31;
        if (automounter.asked() != std::vector<std::string>{"host"}) return 32;
        // A search that excludes no file system lists them all.
        if (!waits(query(everything, ""))) return 33;
        return automounter.asked().size() == 1 ? 0 : 34;
    });
}

TEST(HostileMounts, WhatAnAutomounterMountsIsFound) {
    const TempTree tree;
    const CacheUser cache;
    tree.directory("map");
    withPrivateMounts([&] {
        const Automounter automounter;
        if (!automounter.mount(tree.path("map"), "indirect")) return kNotAllowed;
        for (const char* key : {"map/host", "map/host2"}) tree.directory(key);
        const pid_t server = automounter.serve(tree.path("map"));
        if (server < 0 || !Automounter::leave()) return kNotAllowed;
        setMountTablePath("/proc/self/mounts");
        ::alarm(30);
        FsQuery key, map;
        key.addIncludePath((L"$all::*:" + tree.wide("map/host")).c_str(), true);
        map.addIncludePath((L"$all::*:" + tree.wide("map")).c_str(), true);
        int wrong = found(key, cache, {tree.path("map/host/f")});
        // The other key stays unmounted.
        if (wrong == 0) wrong = found(map, cache, {tree.path("map/host/f")});
        ::kill(server, SIGKILL);
        ::waitpid(server, nullptr, 0);
        return wrong;
    });
}

}  // namespace
}  // namespace fscanner

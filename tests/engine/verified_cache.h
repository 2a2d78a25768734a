#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <optional>
#include <random>
#include <set>
#include <thread>

#include "engine/temp_tree.h"
#include "fscanner/common/time.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_directory.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "support/fault_scale.h"
#include "support/permissions.h"
#include "support/private_mounts.h"
#include "support/test_workers.h"

/// Verified answers from a cache, compared with those of scans.
namespace fscanner {

namespace fs = std::filesystem;

using Answer = std::set<std::string>;

/// Keeps paths, each with its size.
class SizedWriter : public FsResultSetWriter {
public:
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned) override {
        add(toMultibyte(path) + toMultibyte(name), size);
        return 0;
    }
    int addRecord(const FsFileInfo& record) override {
        add(toMultibyte(record.getPath()) + toMultibyte(record.getName()), record.getSize());
        return 0;
    }
    int close() override { return 0; }

    Answer paths, sized;

private:
    void add(const std::string& path, unsigned long long size) {
        EXPECT_TRUE(paths.insert(path).second) << path << " comes twice";
        sized.insert(path + " " + std::to_string(size));
    }
};

/// Adds up the directories that were read again, and notes the files that came from the cache.
class Checks : public FsScanObserver {
public:
    Checks() : previous_(fsSetScanObserver(this)) {}
    Checks(const Checks&) = delete;
    Checks& operator=(const Checks&) = delete;
    ~Checks() override { fsSetScanObserver(previous_); }

    void finished(const FsScanProgress& totals) override { walked += totals.directories; }
    void verified(const FsVerification& one) override {
        ++checks;
        directories += one.directories;
        changed += one.changed;
    }
    /// A host may evaluate the criteria itself: the size 0 must not mislead it.
    void undecided(const FsFileInfo& file) override { unknown += file.hasError(); }
    void clear() { walked = checks = directories = changed = 0; }

    unsigned long long walked = 0, checks = 0, directories = 0, changed = 0, unknown = 0;

private:
    FsScanObserver* previous_;
};

/// Where the tree is, and how many threads help.
struct Setting {
    const char* name;
    bool inMemory;
    unsigned threads;
};

class VerifiedCache : public testing::TestWithParam<Setting> {
protected:
    VerifiedCache() : provider(createProvider(nullptr)) {
        provider->setOption(FS_OPTION_CACHE_DIRECTORY, place.path("cache").c_str());
        provider->setOption(FS_OPTION_VERIFY, "true");
        if (GetParam().threads > 0) workers.emplace(GetParam().threads);
    }

    struct TreeQuery : FsQuery {
        TreeQuery(const std::wstring& path, const wchar_t* criteria) {
            addIncludePath(path.c_str(), true);
            if (criteria) setQuery(criteria);
        }
    };
    TreeQuery queryFor(const std::string& below, const wchar_t* criteria,
                       const wchar_t* drives = L"*:") const {
        return TreeQuery(drives + tree.wide(below), criteria);
    }
    SizedWriter ask(const FsQuery& query, unsigned age = kDay) const {
        SizedWriter writer;
        EXPECT_EQ(provider->executeQuery(writer, query, age, kMinute), 0);
        return writer;
    }
    Answer names(const std::string& below = "") const {
        Answer found;
        for (const std::string& path : ask(queryFor(below, nullptr)).paths)
            found.insert(path.substr(tree.path().size() + 1));
        return found;
    }
    static SizedWriter scan(const FsQuery& query) {
        SizedWriter writer;
        EXPECT_EQ(fsScanQuery(writer, query, kMinute), 0);
        return writer;
    }
    std::set<std::pair<std::string, long>> timesOfCache() const {
        return timesIn(place.path("cache"));
    }
    static std::set<std::pair<std::string, long>> timesIn(const std::string& directory) {
        std::set<std::pair<std::string, long>> all;
        for (const auto& entry : fs::directory_iterator(directory)) {
            struct stat info {};
            EXPECT_EQ(::stat(entry.path().c_str(), &info), 0);
            all.emplace(entry.path().filename(),
                        info.st_ctim.tv_sec * 1'000'000'000 + info.st_ctim.tv_nsec);
        }
        return all;
    }
    void runHistory(bool mounts);
    static void wait() { std::this_thread::sleep_for(std::chrono::milliseconds(40)); }

    std::optional<TestWorkers> workers;
    TempTree tree{GetParam().inMemory ? memoryDirectory() : fs::temp_directory_path()};
    TempTree place;
    std::unique_ptr<FsProvider> provider;
};

/// A clock that was set by so many seconds, beside that of the file system. It must not be ahead
/// within a tick of a change: the times of files would have been set, too.
inline int clockShift = 0;
inline timeval shiftedClock() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return {now.tv_sec + clockShift, now.tv_nsec / 1000};
}
inline timeval steadyClock() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return {now.tv_sec, now.tv_nsec / 1000};
}

/// A query after each of many changes, by every form of criteria. `mounts`: drives come and go,
/// too.
inline void VerifiedCache::runHistory(bool mounts) {
    setClockSource(shiftedClock, steadyClock);
    std::mt19937 random(GetParam().inMemory ? 21 : 22);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const TempTree outside{fs::path(tree.path()).parent_path()};
    outside.directory("x");
    const auto any = [&](bool directory) {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(tree.path()))
            if (entry.is_directory() && !entry.is_symlink() ? directory : !directory)
                found.push_back(entry.path());
        return found.empty() ? tree.path("none/none") : found[below(found.size())];
    };
    const auto fresh = [&] {
        return (below(8) == 0 ? tree.path() : any(true)) + "/" + "abcdefgh"[below(8)] +
               (below(3) == 0 ? "\xff*" : "");
    };
    // A file that is written to changes no directory: a criteria over sizes alone may miss it.
    const bool inPlace = GetParam().inMemory;
    const auto write = [&](const std::string& path, int flags) {
        if (!inPlace && ::unlink(path.c_str()) == 0) flags |= O_CREAT;
        const int file = ::open(path.c_str(), O_WRONLY | O_NOFOLLOW | flags, 0600);
        const std::string text(below(200), 'x');
        if (file < 0) return;
        EXPECT_EQ(::write(file, text.data(), text.size()), std::ssize(text));
        ::close(file);
    };
    const auto setTime = [&](const std::string& path) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        const time_t shifts[] = {-100000, 0, 100000};
        now.tv_sec += shifts[below(3)];
        const timespec times[] = {now, now};
        ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
    };
    const auto mount = [&] {
        const std::string point = below(8) == 0 ? tree.path() : any(true);
        if (below(3) != 0)
            mountMemory(below(2) == 0 ? "server:/export" : "tmpfs", point);
        else
            ::mount(any(true).c_str(), point.c_str(), nullptr, MS_BIND, nullptr);
    };
    const auto unmountAll = [&] {
        std::vector<std::string> points;
        std::ifstream table("/proc/self/mounts");
        for (std::string line, point; table >> line >> point && std::getline(table, line);)
            if (point.starts_with(tree.path()) || point.starts_with(outside.path()))
                points.insert(points.begin(), point);
        for (const std::string& point : points) ::umount2(point.c_str(), MNT_DETACH);
    };
    const auto change = [&] {
        std::error_code error;
        if (mounts && below(12) == 0) return below(3) == 0 ? unmountAll() : mount();
        switch (below(15)) {
            case 0:
            case 1:
            case 2:
                return write(fresh(), O_CREAT);
            case 3:
            case 4:
                return (void)fs::create_directory(fresh(), error);
            case 5:
                return write(any(false), O_TRUNC);
            case 6:
                return fs::rename(any(false), fresh(), error);
            case 7:
                return fs::rename(any(true), fresh(), error);
            case 8:
                return fs::rename(any(below(2) == 0), outside.path("x/" + std::to_string(below(4))),
                                  error);
            case 9:
                return fs::rename(outside.path("x/" + std::to_string(below(4))), fresh(), error);
            case 10:
                return fs::create_hard_link(any(false), fresh(), error);
            case 11:
                return fs::permissions(any(below(2) == 0), fs::perms::owner_all,
                                       fs::perm_options::replace | fs::perm_options::nofollow,
                                       error);
            case 12:
                return setTime(any(below(2) == 0));
            case 13: {  // the same name again, mostly with the same inode
                const std::string path = any(false);
                fs::remove(path, error);
                return below(2) == 0 ? write(path, O_CREAT)
                                     : (void)fs::create_directory(path, error);
            }
            default: {
                const std::string path = any(true);
                if (below(3) != 0) return;
                fs::remove_all(path, error);
                return below(2) == 0 ? fs::create_symlink(".", path, error) : write(path, O_CREAT);
            }
        }
    };
    const wchar_t* const forms[] = {nullptr,
                                    L"[FILENAME]==\"a*\"",
                                    L"[FILENAME]==\"b\"",
                                    L"[FILENAME]!=\"c\" && [SIZE]>50",
                                    L"[FILENAME]==\"d\" || [SIZE]>150",
                                    L"path([PATHID],[FILENAME])==\"*/a*/*\"",
                                    L"[SIZE]>50"};
    for (int i = 0; i < 60; ++i) change();
    Checks checks;
    const int steps = 200 * faultScale();
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        for (std::size_t i = below(4); i > 0; --i) change();
        if (clockShift > 0) clockShift = 0;
        if (below(8) == 0) {
            wait();
            clockShift = static_cast<int>(below(3)) * 7200 - 7200;
        }
        const std::string directory = below(4) == 0 ? any(true) : tree.path();
        const std::string part = directory == tree.path() || !fs::exists(directory)
                                     ? ""
                                     : directory.substr(tree.path().size() + 1);
        for (const wchar_t* form : forms) {
            // Every file is examined for the last question if its tree is old.
            const bool sizesAlone = form == forms[6];
            const TreeQuery query = queryFor(part, form, L"$all::*:");
            const SizedWriter found = ask(query, sizesAlone && below(2) == 0 ? kAllOld : kDay),
                              expected = scan(query);
            const std::string what =
                "step " + std::to_string(step) + " " + part + " " + toMultibyte(form ? form : L"");
            const bool sizes =
                form && std::wstring_view(form).find(L"[SIZE]") != std::wstring::npos;
            if (sizesAlone && inPlace)
                EXPECT_THAT(expected.sized, testing::IsSupersetOf(found.sized)) << what;
            else if (sizes)
                EXPECT_EQ(found.sized, expected.sized) << what;
            else
                EXPECT_EQ(found.paths, expected.paths) << what;
        }
    }
    EXPECT_GT(checks.checks, static_cast<unsigned>(steps));
    if (mounts) unmountAll();
}

}  // namespace fscanner

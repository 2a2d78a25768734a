// Scans with the help of a host's threads find what they find without, in the same order, and tell
// the same.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <random>

#include "engine/cache_user.h"
#include "fscanner/fs/fs_direct.h"
#include "support/child_process.h"
#include "support/listener.h"
#include "support/permissions.h"
#include "support/test_workers.h"

namespace fscanner {
namespace {

using Random = std::mt19937;
using Paths = std::vector<std::string>;

/// What a query wrote and told, in order.
struct Answer {
    int status = 0;
    Paths paths;
    std::vector<unsigned long long> sizes;
    Paths skipped;
    unsigned long long directories = 0;
    bool operator==(const Answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << answer.status << ", " << answer.paths.size() << " paths, "
               << answer.skipped.size() << " skipped, " << answer.directories << " directories";
}

template <typename Run>
Answer answerOf(Run run) {
    const Listener listener;
    CollectingWriter writer;
    Answer answer;
    answer.status = run(writer);
    answer.paths = writer.paths;
    for (const FsFileInfo& record : writer.records) answer.sizes.push_back(record.getSize());
    for (const Listener::Skip& skip : listener.skips) answer.skipped.push_back(skip.directory);
    answer.directories = listener.directories;
    return answer;
}

class ReadAheadTest : public testing::Test {
protected:
    ReadAheadTest() {
        for (FsQuery& query : all) query.addIncludePath((L"*:" + tree.wide("t")).c_str(), true);
        all[1].setQuery(L"[SIZE]>20");
        all[2].addExcludePath((L"*:" + tree.wide("t") + L"/*3").c_str(), true);
        all[2].setQuery(L"[FILENAME]==\"*1*\" && [SIZE]>5");
        all[3].setDepth({2, 3});
        all[3].setKinds(FS_KINDS_ALL);
        all[4].setKinds(FS_KIND_DIRECTORY);
        all[5].setLinks(FsLinks::follow);
        all[5].setOneFileSystem(true);
        all[5].setDepth({0, 2});
    }
    /// Of so many entries; names repeat in other directories.
    void plant(Random& random, unsigned entries) {
        Paths directories = {"t"};
        tree.directory("t");
        for (unsigned i = 0; i < entries; ++i) {
            const std::string path =
                directories[random() % directories.size()] + "/" + std::to_string(random() % 40);
            if (std::filesystem::exists(tree.path(path))) continue;
            if (random() % 3 == 0) {
                tree.directory(path);
                directories.push_back(path);
            } else if (random() % 10 == 0) {
                tree.link("/", path);
            } else {
                tree.file(path, random() % 50);
            }
        }
    }
    /// Some of the entries of the tree are others then.
    void change(Random& random) {
        Paths paths;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(tree.path("t")))
            paths.push_back(entry.path());
        for (int i = 0; i < 60; ++i) {
            const std::filesystem::path path = paths[random() % paths.size()];
            const auto status = std::filesystem::symlink_status(path);
            if (status.type() != std::filesystem::file_type::directory) continue;
            switch (random() % 4) {
                case 0:
                    std::ofstream(path / "new") << "content";
                    break;
                case 1:
                    std::filesystem::rename(path, path.string() + "x");
                    break;
                case 2:
                    std::filesystem::remove_all(path);
                    std::filesystem::create_symlink("/", path);
                    break;
                default:
                    std::filesystem::remove_all(path);
            }
        }
    }
    static Answer scanned(const FsQuery& query) {
        return answerOf([&](auto& writer) { return fsScanQuery(writer, query, kMinute); });
    }

    TempTree tree{memoryDirectory()};
    std::array<FsQuery, 6> all;  // queries of the tree
};

TEST_F(ReadAheadTest, ScansFindTheSameInTheSameOrder) {
    Random random(17);
    for (unsigned round = 0; round < 200; ++round) {
        std::filesystem::remove_all(tree.path("t"));
        plant(random, round % 40 == 0 ? 2000 : 30);
        for (const FsQuery& query : all) {
            const Answer right = scanned(query);
            const TestWorkers workers(round % 3 == 0 ? 16 : round % 3);
            ASSERT_EQ(scanned(query), right) << round;
        }
    }
}

// A directory that cannot be read is told of where the walk comes to it.
TEST_F(ReadAheadTest, WhatCannotBeReadIsToldInOrder) {
    Random random(5);
    plant(random, 400);
    const PermissionsHold hold;
    if (!hold) GTEST_SKIP() << "permissions do not hold here";
    Paths closed;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree.path("t")))
        if (entry.is_directory() && !entry.is_symlink()) closed.push_back(entry.path());
    std::shuffle(closed.begin(), closed.end(), random);
    closed.resize(12);
    std::sort(closed.rbegin(), closed.rend());  // those inside first
    for (const std::string& path : closed) ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    for (const FsQuery& query : all) {
        const Answer right = scanned(query);
        const TestWorkers workers(3);
        EXPECT_EQ(scanned(query), right);
    }
    EXPECT_FALSE(scanned(all[0]).skipped.empty());
    for (auto path = closed.rbegin(); path != closed.rend(); ++path) ::chmod(path->c_str(), 0700);
}

// More directories and levels than are read ahead at once, and a process with few descriptors.
TEST_F(ReadAheadTest, WideAndDeepTreesAreFoundWithFewDescriptors) {
    for (int i = 0; i < 700; ++i) tree.file("t/wide/" + std::to_string(i) + "/a/f");
    std::string deep = "t/deep";
    for (int level = 0; level < 60; ++level) {
        for (const char* name : {"/a/f", "/m/f", "/z/y/f"}) tree.file(deep + name);
        deep += "/m";
    }
    FsQuery query;
    query.addIncludePath((L"*:" + tree.wide("t")).c_str(), true);
    const Answer right = scanned(query);
    ASSERT_EQ(right.paths.size(), 700U + 60 * 3);
    for (const rlim_t descriptors : {24U, 64U, 1024U})
        for (const unsigned threads : {1U, 8U}) {
            const int status = inChild([&] {
                const rlimit few{descriptors, descriptors};
                if (::close_range(3, ~0U, 0) != 0 || ::setrlimit(RLIMIT_NOFILE, &few) != 0)
                    return 100;
                const TestWorkers workers(threads);
                return scanned(query) == right ? 0 : 1;
            });
            EXPECT_EQ(status, 0) << descriptors << ", " << threads;
        }
    // Most descriptors are taken by the host: those of what was read ahead are given back.
    const int status = inChild([&] {
        const TestWorkers workers(2);
        Answer found;
        for (int free = 40; free >= 4; free -= 4) {
            const rlimit most{256, 256};
            if (::close_range(3, ~0U, 0) != 0 || ::setrlimit(RLIMIT_NOFILE, &most) != 0) return 100;
            while (::dup(0) < 255 - free) {
            }
            found = scanned(query);
            if (!(found == right)) return free;
        }
        return 0;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(ReadAheadTest, AStoppedScanLeavesNoTask) {
    Random random(3);
    plant(random, 3000);
    FsQuery query;
    query.addIncludePath((L"*:" + tree.wide("t")).c_str(), true);
    for (int stopAt = 1; stopAt < 4; ++stopAt) {
        const TestWorkers workers(4);
        const Listener listener(stopAt);
        CollectingWriter writer;
        const int status = fsScanQuery(writer, query, kMinute);
        EXPECT_EQ(listener.questions < stopAt, status == 0);
        EXPECT_GT(workers.tasks(), 0U);
        // What is at work would find the tree gone.
    }
}

/// Accepts tasks, and runs none before the end.
class LateWorkers : public FsWorkers {
public:
    LateWorkers() { fsSetWorkers(this); }
    ~LateWorkers() override {
        fsSetWorkers(nullptr);
        for (const auto& task : tasks_) task();
    }
    LateWorkers(const LateWorkers&) = delete;
    LateWorkers& operator=(const LateWorkers&) = delete;
    unsigned atOnce() const override { return 2; }
    bool submit(std::function<void()> task) override {
        if (tasks_.size() == 3) return false;
        tasks_.push_back(std::move(task));
        return true;
    }

private:
    std::vector<std::function<void()>> tasks_;
};

TEST_F(ReadAheadTest, WorkersThatDoNothingCostNothing) {
    Random random(4);
    plant(random, 200);
    FsQuery query;
    query.addIncludePath((L"*:" + tree.wide("t")).c_str(), true);
    const Answer right = scanned(query);
    const LateWorkers workers;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(scanned(query), right);
}

// The directories of a cached tree are looked at by the workers.
TEST_F(ReadAheadTest, AVerifiedCacheFindsTheSameChanges) {
    Random random(10);
    plant(random, 6000);
    CacheUser without, with;
    without.verify = with.verify = true;
    const FsQuery& query = all[0];
    const auto ask = [&](const CacheUser& cache) {
        return answerOf([&](auto& writer) { return cache.query(writer, query); });
    };
    const Answer first = ask(without);
    EXPECT_GT(first.directories, 1000U);
    EXPECT_EQ(ask(with), first);
    for (const unsigned threads : {1U, 2U, 16U, 16U}) {
        change(random);
        const Answer right = ask(without);
        {
            const TestWorkers workers(threads);
            EXPECT_EQ(ask(with), right) << threads;
            EXPECT_GT(workers.tasks(), 0U);
        }
        const LateWorkers late;
        EXPECT_EQ(ask(with), ask(without)) << threads;
        Paths now = right.paths, scan = scanned(query).paths;
        std::sort(now.begin(), now.end());
        std::sort(scan.begin(), scan.end());
        EXPECT_EQ(now, scan) << threads;
    }
}

// What a build with workers puts into a cache is as true as without: nothing is read again.
TEST_F(ReadAheadTest, ACacheIsBuiltAsWithout) {
    Random random(8);
    plant(random, 1500);
    const CacheUser without, with;
    for (const FsQuery& query : all) {
        const auto ask = [&](const CacheUser& cache, unsigned age) {
            return answerOf([&](auto& writer) { return cache.query(writer, query, age); });
        };
        for (const unsigned age : {kAllOld, kDay}) {
            const Answer right = ask(without, age);
            const TestWorkers workers(3);
            EXPECT_EQ(ask(with, age), right) << age;
        }
    }
    EXPECT_EQ(with.bytes(), without.bytes());
}

}  // namespace
}  // namespace fscanner

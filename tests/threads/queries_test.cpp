// Queries that run at the same time, or one in the middle of another: each has its own
// answer, or is refused. The thread sanitizer checks it in the "tsan" preset.

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <functional>
#include <thread>

#include "engine/temp_tree.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_directory.h"
#include "fscanner/fs/fs.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_explain.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "support/log_capture.h"
#include "support/test_workers.h"

#ifdef __SANITIZE_THREAD__
/// The sanitizer does not see mremap: for it, old data of other threads would still be at the
/// place to which a mapping moves. Here mappings move to a place that mmap has given.
extern "C" void* mremap(void* from, std::size_t length, std::size_t wanted, int, ...) noexcept {
    void* const place = mmap(nullptr, wanted, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) return MAP_FAILED;
    const int flags = MREMAP_MAYMOVE | MREMAP_FIXED;
    return reinterpret_cast<void*>(syscall(SYS_mremap, from, length, wanted, flags, place));
}
#endif

namespace fscanner {
namespace {

using Paths = std::vector<std::string>;

constexpr unsigned kAge = 3600;

const wchar_t* const kCriteria[] = {
    L"[FILENAME]==\"*.h\"",
    L"[SIZE]>2",
    L"path([PATHID],[FILENAME])==\"*/d1/*\"",
    L"type(path([PATHID],[FILENAME]),\"empty\")",
};

class Queries : public testing::Test {
protected:
    Queries() {
        for (int i = 0; i < 60; ++i)
            tree.file(
                "d" + std::to_string(i % 5) + "/name" + std::to_string(i) + (i % 3 ? ".h" : ".txt"),
                static_cast<std::size_t>(i % 4));
    }
    void describe(FsQuery& query, const wchar_t* criteria) const {
        query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
        query.setQuery(criteria);
    }
    std::unique_ptr<FsProvider> provider(const std::string& name) const {
        std::unique_ptr<FsProvider> made(createProvider(nullptr));
        made->setOption(FS_OPTION_CACHE_DIRECTORY, place.path(name).c_str());
        return made;
    }
    /// The paths that `run` finds. It is given a query and a writer, and returns a status.
    template <typename Run>
    Paths found(const wchar_t* criteria, Run run) const {
        FsQuery query;
        describe(query, criteria);
        CollectingWriter writer;
        EXPECT_EQ(run(query, writer), 0);
        return writer.sorted();
    }
    Paths scan(const wchar_t* criteria) const {
        return found(criteria,
                     [](auto& query, auto& to) { return fsScanQuery(to, query, kMinute); });
    }
    Paths ask(FsProvider& from, const wchar_t* criteria, unsigned age) const {
        return found(criteria, [&](auto& query, auto& to) {
            return from.executeQuery(to, query, age, kMinute);
        });
    }
    // Through a file of results, or through memory, which keeps the plan.
    template <auto execute>
    Paths read(FsProvider& from, const wchar_t* criteria) const {
        return found(criteria, [&](auto& query, auto& to) {
            const std::unique_ptr<FsResultSetReader> reader(execute(&from, query, 60, 60));
            FsFileInfo record;
            for (reader->moveFirst(); reader->getNext(record);) to.addRecord(record);
            return from.lastStatus();
        });
    }

    TempTree tree;
    TempTree place;
};

TEST_F(Queries, OfProvidersOfTheirOwnRunInThreads) {
    std::vector<Paths> right;
    for (const wchar_t* criteria : kCriteria) right.push_back(scan(criteria));
    for (const Paths& paths : right)
        ASSERT_THAT(paths, testing::SizeIs(testing::AllOf(testing::Gt(5U), testing::Lt(50U))));
    // Each observer is called in its own thread.
    FsScanObserver watcher;
    FsScanObserver* const before = fsSetScanObserver(&watcher);
    // All share the threads that help them.
    const TestWorkers workers(3);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 8; ++i) {
        threads.emplace_back([this, i, &right] {
            const auto own = provider("own" + std::to_string(i));
            const auto shared = provider("shared");
            for (unsigned round = 0; round < 3; ++round) {
                const unsigned at = (i + round) % std::size(kCriteria);
                const wchar_t* const criteria = kCriteria[at];
                EXPECT_EQ(scan(criteria), right[at]);
                EXPECT_EQ(ask(*own, criteria, kAge), right[at]);
                EXPECT_EQ(read<fsExecuteQuery>(*own, criteria), right[at]);
                EXPECT_EQ(read<fsExecuteQueryEx>(*own, criteria), right[at]);
                EXPECT_EQ(ask(*shared, criteria, round == 0 ? FS_CACHE_REBUILD : kAge), right[at]);
                EXPECT_TRUE(fsCheckCriteria(criteria).compiles);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    fsSetScanObserver(before);
}

/// Does something at the first record.
class CallingWriter : public CollectingWriter {
public:
    explicit CallingWriter(std::function<void()> call) : call_(std::move(call)) {}
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override {
        if (const auto call = std::exchange(call_, nullptr)) call();
        return CollectingWriter::addRecord(path, name, size, attributes);
    }

private:
    std::function<void()> call_;
};

// They can share the cache, unless a tree has to be built.
TEST_F(Queries, InTheMiddleOfAnotherOnItsCacheAreAnsweredWithoutAChange) {
    const auto first = provider("cache");
    const auto second = provider("cache");
    for (FsProvider* const inner : {first.get(), second.get()}) {
        for (const wchar_t* criteria : kCriteria) {
            const Paths right = scan(criteria);
            FsQuery query;
            describe(query, criteria);
            CollectingWriter refused;
            int status = 0;
            const LogCapture log;
            CallingWriter writer([&] {
                EXPECT_EQ(ask(*inner, criteria, kAge), right);
                status = inner->executeQuery(refused, query, FS_CACHE_REBUILD, kMinute);
            });
            EXPECT_EQ(first->executeQuery(writer, query, kAge, kMinute), 0);
            EXPECT_EQ(writer.sorted(), right);
            EXPECT_EQ(status, FS_CACHE_LOCK_TIMED_OUT);
            EXPECT_THAT(refused.paths, testing::IsEmpty());
            EXPECT_THAT(log.text(), testing::HasSubstr("this thread holds"));
        }
    }
}

TEST_F(Queries, InTheMiddleOfAnotherElsewhereAreAnswered) {
    const auto outer = provider("outer");
    const auto other = provider("other");
    for (const wchar_t* criteria : kCriteria) {
        for (const wchar_t* within : kCriteria) {
            FsQuery query;
            describe(query, criteria);
            CallingWriter writer([&] {
                EXPECT_EQ(scan(within), ask(*other, within, kAge));
                EXPECT_EQ(read<fsExecuteQueryEx>(*other, within).empty(), false);
            });
            EXPECT_EQ(outer->executeQuery(writer, query, kAge, kMinute), 0);
            EXPECT_EQ(writer.sorted(), scan(criteria));
        }
    }
}

TEST_F(Queries, OfACacheInTheMiddleOfItsOwnAreRefused) {
    const auto prepared = provider("cache");
    const Paths right = ask(*prepared, kCriteria[0], kAge);
    const FsCacheTableNames names = fsCacheTableNames(false);
    FS_Cache cache(names.directories.c_str(), names.files.c_str(), place.wide("cache").c_str(),
                   false, false, true);
    ASSERT_EQ(cache.lock(), 0);
    ASSERT_EQ(cache.create(0, FS_CACHE_OPEN), 0);
    FsQuery query;
    describe(query, kCriteria[0]);
    CallingWriter writer([&] {
        CollectingWriter inner;
        EXPECT_EQ(cache.executeQuery(inner, query, kMinute, kAge), FS_CACHE_LOCK_TIMED_OUT);
        EXPECT_THAT(std::vector({cache.close(), cache.compact(), cache.remove()}),
                    testing::Each(false));
    });
    EXPECT_EQ(cache.executeQuery(writer, query, kMinute, kAge), 0);
    EXPECT_EQ(writer.sorted(), right);
    EXPECT_TRUE(cache.close());
    cache.unlock();
}

}  // namespace
}  // namespace fscanner

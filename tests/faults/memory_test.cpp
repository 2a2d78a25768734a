// Memory runs out at every allocation of compiling, building, searching and sorting. Each time
// there is a failure result, never an exception in the host, and the next search is right.

#include <gmock/gmock.h>

#include <new>

#include "fscanner/common/fields.h"
#include "fscanner/fs/fs.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_explain.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_resultset.h"
#include "host.h"

// ---- Allocation that fails when it is told to ----------------------------------

namespace {

bool counting = false;
bool failOnward = false;
unsigned allocations = 0;
unsigned failAt = 0;

bool mustFail() {
    if (!counting) return false;
    ++allocations;
    const bool fails = allocations == failAt || (failOnward && allocations > failAt);
    if (fails) errno = ENOMEM;
    return fails;
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
#define FSCANNER_OWN_MALLOC 0
#elif defined(__has_feature)
#define FSCANNER_OWN_MALLOC !__has_feature(address_sanitizer)
#else
#define FSCANNER_OWN_MALLOC 1
#endif

#if FSCANNER_OWN_MALLOC && defined(__GLIBC__)
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) {
    return mustFail() ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    return mustFail() ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* old, std::size_t size) {
    return mustFail() ? nullptr : __libc_realloc(old, size);
}
}
#else
// The sanitizers keep malloc to themselves. Not inlined: a compiler that sees only one half
// of a pair warns of a mistake.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = mustFail() ? nullptr : std::malloc(size ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return mustFail() ? nullptr : std::malloc(size ? size : 1);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
#endif

namespace fscanner {
namespace {

// Takes results without allocating memory.
class SummingWriter : public FsResultSetWriter {
public:
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long, unsigned) override {
        std::uint64_t hash = 14695981039346656037U;
        for (const wchar_t* text : {path, name})
            for (; *text; ++text) hash = (hash ^ static_cast<unsigned>(*text)) * 1099511628211U;
        ++count;
        sum += hash;
        return 0;
    }
    int addRecord(const FsFileInfo& record) override {
        return addRecord(record.getPath() ? record.getPath() : L"",
                         record.getName() ? record.getName() : L"", 0, 0);
    }
    int close() override { return 0; }
    friend bool operator==(const SummingWriter& a, const SummingWriter& b) {
        return a.count == b.count && a.sum == b.sum;
    }

    unsigned count = 0;
    std::uint64_t sum = 0;
};

struct Result {
    bool failed = false;  // and reported as failed
    SummingWriter found = {};
};

constexpr const wchar_t* kCriteria =
    L"([FILENAME]==\"name*\" || [SIZE]>100) && !([FILENAME]==\"nowhere\" && [ATTR]+1*2>3)";

enum class Before { none, built, changed };

struct Scenario {
    const char* name;
    Before cache;
    // The host makes the query while there is memory.
    Result (*act)(FsProvider&, const FsQuery&);
};

template <unsigned age>
Result askProvider(FsProvider& provider, const FsQuery& query) {
    Result result;
    result.failed = provider.executeQuery(result.found, query, age, kMinute) != 0;
    return result;
}

Result scan(FsProvider&, const FsQuery& query) {
    Result result;
    result.failed = fsScanQuery(result.found, query, kMinute) != 0;
    return result;
}

// A reader has no status: the failure shows as an empty one.
template <auto execute>
Result searchAndSort(FsProvider& provider, const FsQuery& query) {
    Result result;
    const std::unique_ptr<FsResultSetReader> reader(execute(&provider, query, 1440, 60));
    result.failed = !reader || provider.lastStatus() != 0;
    if (result.failed) return result;
    reader->sort(FS_SORT_NAME, FS_SORT_DESCENDING, false);
    counting = false;  // a failure while reading is not reported
    FsFileInfo record;
    for (reader->moveFirst(); reader->getNext(record);) result.found.addRecord(record);
    result.failed = result.found.count == 0;
    return result;
}

Result inspect(FsProvider&, const FsQuery& query) {
    Result result;
    FsQueryReport report;
    const bool explained = fsExplainQuery(query, report);
    const auto filter = FsRecordFilter::create(query.getQuery(), false);
    result.failed = !explained || !filter;
    return result;
}

const Scenario kScenarios[] = {
    {"First", Before::none, askProvider<kDay>},
    {"Again", Before::built, askProvider<kDay>},
    {"Verified", Before::changed, askProvider<kDay>},
    {"Rebuilt", Before::built, askProvider<kAllOld>},
    {"Direct", Before::built, scan},
    {"File", Before::built, searchAndSort<fsExecuteQuery>},
    {"Memory", Before::built, searchAndSort<fsExecuteQueryEx>},
    {"Inspected", Before::built, inspect},
};

class OutOfMemory : public testing::TestWithParam<Scenario> {
protected:
    OutOfMemory() {
        host.plant(4, 3);
        host.describe(query, kCriteria);
        if (GetParam().cache == Before::changed) provider->setOption(FS_OPTION_VERIFY, "true");
    }
    void prepare() const {
        if (GetParam().cache == Before::none) host.forget();
        if (GetParam().cache != Before::changed) return;
        host.askBeforeChanges([this] {
            SummingWriter ignored;
            provider->executeQuery(ignored, query, kDay, kMinute);
        });
    }
    // Whether the failing allocation was reached.
    bool check(unsigned at, bool onward) {
        prepare();
        const std::string name =
            "allocation " + std::to_string(at) + (onward ? " and all later ones" : "");
        allocations = 0;
        failAt = at;
        failOnward = onward;
        Result result;
        bool thrown = false;
        counting = true;
        try {
            result = GetParam().act(*provider, query);
        } catch (...) {
            thrown = true;
        }
        counting = false;
        EXPECT_FALSE(thrown) << name;
        if (!thrown && !result.failed) {
            EXPECT_TRUE(result.found == right.found) << name;
        }
        const Result next = GetParam().act(*provider, query);
        EXPECT_FALSE(next.failed) << name;
        EXPECT_TRUE(next.found == right.found) << name;
        return allocations >= at;
    }

    FaultHost host;
    std::unique_ptr<FsProvider> provider = host.provider();
    FsQuery query;
    Result right;
};

TEST_P(OutOfMemory, IsAResult) {
    right = GetParam().act(*provider, query);
    ASSERT_FALSE(right.failed);
    const unsigned step = static_cast<unsigned>(std::max(1, 10 / faultScale()));
    for (unsigned at = 1; !HasFailure(); at += at < 40 ? 1 : step) {
        const bool reached = check(at, false);
        check(at, true);
        if (!reached) break;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, OutOfMemory, testing::ValuesIn(kScenarios),
                         [](const auto& form) { return form.param.name; });

// Calls `act` with each of its allocations failing in turn, until it needs no more.
template <typename Act>
void failEachAllocationOf(Act act) {
    failOnward = false;
    unsigned at = 0;
    do {
        allocations = 0;
        failAt = ++at;
        act();
        counting = false;
    } while (allocations >= at);
}

TEST(OutOfMemoryOf, ASettingGivesTheDefault) {
    const FsConfig_TAV config;
    failEachAllocationOf([&] {
        counting = true;
        const std::string text = config.getString("fscanner", "no such key", "default");
        const int number = config.getInteger("fscanner", "no such key", 7);
        counting = false;
        EXPECT_EQ(text, "default") << "allocation " << failAt;
        EXPECT_EQ(number, 7) << "allocation " << failAt;
    });
}

TEST(OutOfMemoryOf, AFieldsNameIsAResult) {
    failEachAllocationOf([] {
        Int32Field field(L"old");
        const std::uint64_t renames = Field::renames();
        counting = true;
        const bool named = field.setName(L"new");
        counting = false;
        EXPECT_EQ(named, allocations < failAt);
        EXPECT_EQ(field.name() != nullptr, named);
        EXPECT_NE(Field::renames(), renames) << "what was resolved by the old name is not any more";
    });
}

}  // namespace
}  // namespace fscanner

// Another user changes trees while we walk them, and wants us to leave them:
// directories exchanged for links, files that vanish, directories that grow.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <optional>

#include "hostile/cache_image.h"
#include "support/child_process.h"
#include "support/fault_scale.h"
#include "support/test_workers.h"

namespace fscanner {
namespace {

constexpr unsigned kSecretSize = 777;
constexpr unsigned kExchange = 2;  // RENAME_EXCHANGE, which older headers lack

// Exchanges one directory of each level for a link out of the tree, makes and removes
// files, and lets a directory grow, until it is killed.
[[noreturn]] void changeWithoutEnd(const std::string& tree) {
    if (::geteuid() == 0 && !becomeNobody()) ::_exit(1);
    // Only now, because a change of the user clears it.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::chdir(tree.c_str()) != 0) ::_exit(1);
    const auto exchange = [](const char* a, const char* b) {
        ::syscall(SYS_renameat2, AT_FDCWD, a, AT_FDCWD, b, kExchange);
    };
    for (unsigned round = 0;; ++round) {
        exchange("a", "a.link");
        exchange("b/c", "b/c.link");
        exchange("b/d/e", "b/d/e.link");
        const std::string file = "b/d/new" + std::to_string(round % 64);
        if (round / 64 % 2) {
            ::unlink(file.c_str());
        } else {
            ::close(::open(file.c_str(), O_CREAT | O_WRONLY | O_NOFOLLOW, 0600));
        }
        exchange("a", "a.link");
        exchange("b/c.link", "b/c");
        exchange("b/d/e", "b/d/e.link");
    }
}

/// Without the help of workers, and with it.
class WalkRace : public testing::TestWithParam<unsigned> {
protected:
    WalkRace() {
        // The same names outside, with other sizes.
        for (const char* below : {"a/f", "b/c/f", "b/c/g/f", "b/d/e/f", "b/d/e/g/f", "b/f"}) {
            inside.file(below);
            outside.file(below, kSecretSize);
            outside.file(std::string(below) + ".secret", kSecretSize);
        }
        for (const char* name : {"a", "b/c", "b/d/e"})
            inside.link(outside.path(name), std::string(name) + ".link");
        for (const auto& entry : std::filesystem::recursive_directory_iterator(inside.path()))
            give(entry.path());
        give(inside.path());
        query.addIncludePath((L"*:" + inside.wide()).c_str(), true);
        swapper_ = ::fork();
        if (swapper_ == 0) changeWithoutEnd(inside.path());
        if (GetParam() > 0) workers_.emplace(GetParam());
    }
    ~WalkRace() override {
        int status = 0;
        EXPECT_EQ(::waitpid(swapper_, &status, WNOHANG), 0) << "the swapper ended by itself";
        ::kill(swapper_, SIGKILL);
        ::waitpid(swapper_, &status, 0);
    }

    static void give(const std::filesystem::path& path) {
        const bool given = ::geteuid() != 0 || ::lchown(path.c_str(), kNobody, kNobody) == 0;
        EXPECT_TRUE(given) << path;
    }
    CollectingWriter scanned() const {
        CollectingWriter writer;
        EXPECT_EQ(fsScanQuery(writer, query, kMinute), 0);
        return writer;
    }
    // Links themselves are entries, whatever their targets.
    void check(const CollectingWriter& writer) {
        for (const std::string& path : writer.paths) {
            EXPECT_TRUE(path.starts_with(inside.path() + "/")) << path;
            EXPECT_FALSE(path.ends_with(".secret")) << path;
        }
        for (const FsFileInfo& record : writer.records)
            EXPECT_NE(record.getSize(), kSecretSize) << toMultibyte(record.getName());
        linksMet_ += std::count_if(writer.paths.begin(), writer.paths.end(), [&](const auto& path) {
            return path == inside.path("a") || path == inside.path("b/c");
        });
    }

    TempTree inside{memoryDirectory()}, outside{memoryDirectory()};
    FsQuery query;
    pid_t swapper_ = -1;
    std::ptrdiff_t linksMet_ = 0;
    std::optional<TestWorkers> workers_;
};

TEST_P(WalkRace, NothingFromOutsideTheTreeIsFound) {
    const int walks = 2000 * faultScale();
    query.setQuery(L"[SIZE]>=0");
    for (int i = 0; i < walks && !HasFailure(); ++i) check(scanned());
    EXPECT_GT(linksMet_, walks / 100) << "the trees were not exchanged often enough";
}

TEST_P(WalkRace, NorIsItPutIntoTheCache) {
    const CacheUser cache;
    for (int i = 0; i < 100 * faultScale() && !HasFailure(); ++i) {
        CollectingWriter writer;
        EXPECT_EQ(cache.query(writer, query, kAllOld), 0);
        check(writer);
        EXPECT_FALSE(cache.isMarked());
    }
}

// The type of a file is asked for through its directory's path, after the walk has met it.
TEST_P(WalkRace, NorIsItsTypeTold) {
    for (const char* below : {"a/f", "b/c/f", "b/c/g/f", "b/d/e/f", "b/d/e/g/f"})
        writeWholeFile(outside.path(below), "%PDF-1.4\n");
    query.setQuery(L"type(path([PATHID],[FILENAME]),\"PDF\")==1");
    for (int i = 0; i < 30 * faultScale() && !HasFailure(); ++i)
        EXPECT_THAT(scanned().paths, testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Workers, WalkRace, testing::Values(0U, 2U));

}  // namespace
}  // namespace fscanner

// Disks of many sizes fill up. There is a status and no signal, and all works once there is space.

#include <gmock/gmock.h>

#include "host.h"
#include "support/private_mounts.h"

namespace fscanner {
namespace {

enum Outcome : int { kWhole = 10, kTold, kSilentlyWrong, kNextFailed, kNextWrong };

constexpr unsigned kKiB = 1024;

// A host whose cache, and temporary files, lie on a disk of its own.
class SmallDisk {
public:
    explicit SmallDisk(const FaultHost& host) : host_(host), right_(host.truth()) {}

    bool mount(const std::string& options) {
        host_.forget();
        if (!enterPrivateMounts() || !mountMemory("none", host_.place.path(), options.c_str()))
            return false;
        // Lock files are not tested here, and need a place.
        host_.place.directory("locks");
        host_.place.directory("temporary");
        return true;
    }
    void resize(const std::string& options) const {
        ::mount("none", host_.place.path().c_str(), "tmpfs", MS_REMOUNT, options.c_str());
    }
    // Leaves so many KiB of room.
    void fillBut(unsigned room) const {
        std::error_code ignored;
        const auto space = std::filesystem::space(host_.place.path(), ignored).available;
        if (space > room * kKiB) host_.place.file("ballast", space - room * kKiB);
    }
    void empty() const { std::filesystem::remove(host_.place.path("ballast")); }

    // Makes both kinds of searches, and a sort. Returns their outcome.
    int search(unsigned age) const {
        const Answer answer = host_.ask(age);
        if (answer.claimsToBeWhole() && answer.paths != right_) return kSilentlyWrong;
        const std::size_t kept = searchToFile();
        if (kept != right_.size() && kept != 0) return kSilentlyWrong;
        return answer.claimsToBeWhole() && kept ? kWhole : kTold;
    }
    int searchWithSpace() const {
        const Answer next = host_.ask();
        if (next.status != 0) return kNextFailed;
        return next.paths == right_ && searchToFile() == right_.size() ? kWhole : kNextWrong;
    }

private:
    std::size_t searchToFile() const {
        int status = 0;
        const auto reader = host_.askForFile(status, FS_SORT_NAME);
        return reader && status == 0 ? FaultHost::pathsOf(*reader).size() : 0;
    }

    const FaultHost& host_;
    std::vector<std::string> right_;
};

struct Case {
    std::string name;
    std::string options;  // of the new disk
    unsigned room;        // KiB left when the cache is there; 0: there is no cache yet
};

std::vector<Case> cases() {
    std::vector<Case> all;
    for (unsigned size = 64; size <= 4096; size += 68) {
        const std::string text = std::to_string(size) + "k";
        all.push_back({"new on " + text, "size=" + text, 0});
        if (size < 2048) all.push_back({"rebuilt in " + text, "size=16m", size});
    }
    for (int inodes = 4; inodes < 24; ++inodes)
        all.push_back({"new with " + std::to_string(inodes) + " names",
                       "size=16m,nr_inodes=" + std::to_string(inodes), 0});
    return all;
}

TEST(DiskFull, IsACodeUntilThereIsSpace) {
    FaultHost host;
    host.plant(40, 50);
    const auto run = [&](const Case& one) {
        SmallDisk disk(host);
        if (!disk.mount(one.options)) return kNotAllowed;
        if (one.room) {
            if (disk.searchWithSpace() != kWhole) return +kNextWrong;
            disk.fillBut(one.room);
        }
        const int outcome = disk.search(one.room ? kAllOld : kDay);
        if (outcome != kWhole && outcome != kTold) return outcome;
        disk.empty();
        disk.resize("size=64m,nr_inodes=1000");
        const int next = disk.searchWithSpace();
        return next == kWhole ? outcome : next;
    };
    unsigned told = 0;
    for (const Case& one : cases()) {
        const int outcome = inChild([&] { return run(one); });
        if (outcome == kNotAllowed) GTEST_SKIP() << "no file systems may be mounted here";
        EXPECT_THAT(outcome, testing::AnyOf(+kWhole, +kTold)) << one.name;
        told += outcome == kTold ? 1 : 0;
        if (one.room >= 1024) {
            EXPECT_EQ(outcome, kWhole) << one.name << ": no second cache is needed";
        }
    }
    EXPECT_GT(told, 30U) << "the disks were not small";
}

}  // namespace
}  // namespace fscanner

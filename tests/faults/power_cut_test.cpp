// The power fails. The order of a session's system calls says what is certainly on disk then: an
// untouched cache, a complete one, or a marked one.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <map>

#include "host.h"
#include "tracer.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

bool isTable(const std::string& name) {
    return name.ends_with(".dat") || name.ends_with(".pxx") || name.ends_with(".idx");
}

// Keeps what is certainly on disk: a file's content since its last fsync, a name since the last
// fsync of its directory.
class DurableState {
public:
    explicit DurableState(std::string directory) : directory_(std::move(directory)) {
        syncNames();
        for (const std::string& path : FaultHost::walkFresh(directory_))
            contents_[path] = readFast(path);
    }

    void see(const TracedCall& call) {
        if (call.group() == "fsync") {
            const std::string path = call.descriptorPath(0);
            checkMark();
            if (path == directory_)
                syncNames();
            else
                contents_[path] = readFast(path);
        }
        if (call.group() == "rename") contents_[call.path(1)] = contents_[call.path(0)];
        const unsigned name = call.number == SYS_unlink ? 0 : 1;
        if (call.group() == "unlink" && call.path(name).ends_with(".cuflag")) checkWhole();
    }
    std::string complaint() const { return complaint_; }
    int marksRemoved() const { return marksRemoved_; }

private:
    static std::string readFast(const std::string& path) {
        std::string bytes;
        const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat info {};
        if (file >= 0 && ::fstat(file, &info) == 0) {
            bytes.resize(static_cast<std::size_t>(info.st_size));
            if (::pread(file, bytes.data(), bytes.size(), 0) < 0) bytes.clear();
        }
        ::close(file);
        return bytes;
    }
    void syncNames() {
        const std::vector<std::string> paths = FaultHost::walkFresh(directory_);
        names_ = std::set(paths.begin(), paths.end());
    }
    bool isMarkDurable() const {
        return std::any_of(names_.begin(), names_.end(),
                           [](const std::string& name) { return name.ends_with(".cuflag"); });
    }
    // A write reaches the disk: without the mark, it must not be a change of a table.
    void checkMark() {
        if (isMarkDurable()) return;
        for (const auto& [path, content] : contents_)
            if (isTable(path) && readFast(path) != content) complaint_ = path + " before the mark";
        for (const std::string& path : FaultHost::walkFresh(directory_))
            if (isTable(path) && !contents_.contains(path))
                complaint_ = path + " made before the mark";
    }
    // The mark is removed: all changes that it covered are on disk, by content and by name.
    void checkWhole() {
        ++marksRemoved_;
        for (const std::string& path : FaultHost::walkFresh(directory_)) {
            if (path.ends_with(".cuflag") || path.ends_with(".TAG")) continue;
            if (path.ends_with(".undo")) continue;  // not used after a power cut
            if (contents_[path] != readFast(path))
                complaint_ = path + " not synced when the mark goes";
            if (!names_.contains(path))
                complaint_ = path + " not in the directory when the mark goes";
        }
        syncNames();  // at worst, a mark that comes back costs a rebuild
    }

    std::string directory_;
    std::map<std::string, std::string> contents_;
    std::set<std::string> names_;
    std::string complaint_;
    int marksRemoved_ = 0;
};

class PowerCut : public testing::TestWithParam<bool> {};

TEST_P(PowerCut, TheMarkIsOnDiskBeforeAChangeAndTheTablesBeforeItGoes) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    FaultHost host;
    host.plant(4, 4);
    host.place.directory("cache");
    const struct {
        const char* name;
        unsigned age;
        bool changes;
        bool verifies = false;
    } sessions[] = {{"first", kDay, true},
                    {"unchanged", kDay, false},
                    {"brought up to date", kDay, true, true},
                    {"rebuilt", kAllOld, true},
                    {"rebuilt and compacted", kAllOld, true}};
    for (const auto& session : sessions) {
        host.verifies = session.verifies;
        if (session.verifies) host.askBeforeChanges([&] { host.ask(kDay, L"", GetParam()); });
        DurableState disk(fs::canonical(host.place.path("cache")).string());
        const int status =
            Tracer().run([&] { return host.ask(session.age, L"", GetParam()).status == 0 ? 0 : 1; },
                         [&](const TracedCall& call) {
                             disk.see(call);
                             return 0;
                         });
        EXPECT_EQ(status, 0) << session.name;
        EXPECT_EQ(disk.complaint(), "") << session.name;
        EXPECT_EQ(disk.marksRemoved() > 0, session.changes) << session.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, PowerCut, testing::Bool(),
                         [](const auto& form) { return form.param ? "Compressed" : "Fixed"; });

// The process that died may not have synced the files that the next process puts back, or finds
// in order.
TEST_P(PowerCut, WhatIsRecoveredIsOnDiskBeforeTheMarkGoes) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    FaultHost host;
    host.plant(4, 4);
    host.place.directory("cache");
    FsQuery query;
    host.describeParts(query, {"d0", "d1"});
    const auto session = [&](unsigned age) {
        CollectingWriter ignored;
        return host.provider(GetParam())->executeQuery(ignored, query, age, kMinute);
    };
    const auto rebuild = [&] { return session(kAllOld); };
    ASSERT_EQ(session(kDay), 0);
    const unsigned calls = Tracer().countCalls(rebuild);
    const auto step = static_cast<unsigned>(std::max(1, 40 / faultScale()));
    int removed = 0;
    for (unsigned at = 1; at <= calls && !HasFailure(); at += step) {
        DurableState disk(fs::canonical(host.place.path("cache")).string());
        unsigned seen = 0;
        Tracer().run(rebuild, [&](const TracedCall& call) {
            if (++seen == at) return Tracer::kKill;
            disk.see(call);
            return 0;
        });
        const int before = disk.marksRemoved();
        Tracer().run([&] { return session(kDay); },
                     [&](const TracedCall& call) {
                         disk.see(call);
                         return 0;
                     });
        EXPECT_EQ(disk.complaint(), "") << at << " of " << calls;
        removed += disk.marksRemoved() - before;
    }
    EXPECT_GT(removed, 0);
}

}  // namespace
}  // namespace fscanner

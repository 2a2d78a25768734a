// The power goes: at any system call of a session, on a disk image that forgets what was
// not synced; and, where there are no such disks, by what the order of calls shows.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>

#include "host.h"
#include "tracer.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

// ---- The order of calls --------------------------------------------------------

bool isTable(const std::string& name) {
    return name.ends_with(".dat") || name.ends_with(".pxx") || name.ends_with(".idx");
}

// Keeps what is on disk for sure: a file's content since its last fsync, a name since
// its directory's.
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
    // Something comes to disk: without the mark, it must not be a change of a table.
    void checkMark() {
        if (isMarkDurable()) return;
        for (const auto& [path, content] : contents_)
            if (isTable(path) && readFast(path) != content) complaint_ = path + " before the mark";
        for (const std::string& path : FaultHost::walkFresh(directory_))
            if (isTable(path) && !contents_.contains(path))
                complaint_ = path + " made before the mark";
    }
    // The mark goes: all that it spoke for is on disk, by content and by name.
    void checkWhole() {
        ++marksRemoved_;
        for (const std::string& path : FaultHost::walkFresh(directory_)) {
            if (path.ends_with(".cuflag") || path.ends_with(".TAG")) continue;
            if (contents_[path] != readFast(path))
                complaint_ = path + " not synced when the mark goes";
            if (!names_.contains(path))
                complaint_ = path + " not in the directory when the mark goes";
        }
        syncNames();  // at worst: a mark that comes back costs a rebuild alone
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
    } sessions[] = {{"first", FaultHost::kAnyAge},
                    {"unchanged", FaultHost::kAnyAge},
                    {"rebuilt", FaultHost::kNoAge},
                    {"rebuilt and compacted", FaultHost::kNoAge}};
    for (const auto& session : sessions) {
        DurableState disk(fs::canonical(host.place.path("cache")).string());
        const int status =
            Tracer().run([&] { return host.ask(session.age, L"", GetParam()).status == 0 ? 0 : 1; },
                         [&](const TracedCall& call) {
                             disk.see(call);
                             return 0;
                         });
        EXPECT_EQ(status, 0) << session.name;
        EXPECT_EQ(disk.complaint(), "") << session.name;
        EXPECT_GE(disk.marksRemoved(), 1) << session.name;
    }
}

// ---- The disk that forgets -----------------------------------------------------

constexpr unsigned long kShutDown = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t kWithoutFlushingTheLog = 2;
constexpr int kNoDisk = 77;

// An ext4 file system in a file, mounted through a loop device.
class Disk {
public:
    explicit Disk(const std::string& directory)
        : image_(directory + "/image"), mountPoint_(directory + "/disk") {
        fs::create_directories(mountPoint_);
    }
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;
    ~Disk() {
        ::umount2(mountPoint_.c_str(), MNT_DETACH);
        fs::remove(image_);
    }

    bool make() const {
        { std::ofstream(image_).put(0); }
        fs::resize_file(image_, 48U << 20);
        const std::string command =
            "mkfs.ext4 -q -F -E lazy_itable_init=0 '" + image_ + "' >/dev/null 2>&1";
        return std::system(command.c_str()) == 0 && mount();
    }
    bool mount() const {
        const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        const int number = control < 0 ? -1 : ::ioctl(control, LOOP_CTL_GET_FREE);
        ::close(control);
        if (number < 0) return false;
        const std::string device = "/dev/loop" + std::to_string(number);
        const int loop = ::open(device.c_str(), O_RDWR | O_CLOEXEC);
        const int file = ::open(image_.c_str(), O_RDWR | O_CLOEXEC);
        loop_config config{};
        config.fd = static_cast<unsigned>(file);
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        const bool bound = loop >= 0 && file >= 0 && ::ioctl(loop, LOOP_CONFIGURE, &config) == 0;
        const bool mounted =
            bound && ::mount(device.c_str(), mountPoint_.c_str(), "ext4", 0, "") == 0;
        ::close(loop);
        ::close(file);
        return mounted;
    }
    // What was not synced is lost; the rest comes back with the next mount.
    bool cut() const {
        const int root = ::open(mountPoint_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        std::uint32_t how = kWithoutFlushingTheLog;
        const bool done = root >= 0 && ::ioctl(root, kShutDown, &how) == 0;
        ::close(root);
        return done;
    }
    bool remount() const { return ::umount(mountPoint_.c_str()) == 0 && mount(); }
    const std::string& mountPoint() const { return mountPoint_; }

private:
    std::string image_;
    std::string mountPoint_;
};

// The tree lies in memory, and only the cache on the disk.
class CuttingHost : public FaultHost {
public:
    explicit CuttingHost(const std::string& directory) {
        cache = directory;
        plant(6, 6);
    }
    void change() {
        if (version_) fs::remove(tree.path("v" + std::to_string(version_)));
        tree.file("v" + std::to_string(++version_));
    }

private:
    int version_ = 0;
};

// In a process with mounts of its own.
int cutOften(bool compressed, int cuts) {
    TemporaryDirectory directory;
    const Disk disk(directory.path());
    if (::geteuid() != 0 || !enterPrivateMounts() || !disk.make()) return kNoDisk;
    CuttingHost host(disk.mountPoint() + "/cache");
    host.change();
    std::vector<std::string> known = host.truth();
    if (host.ask(FaultHost::kNoAge, L"", compressed).paths != known) return 1;
    std::mt19937 random(compressed ? 3 : 4);
    const auto session = [&] { return host.ask(FaultHost::kNoAge, L"", compressed).status; };
    const unsigned calls = Tracer().countCalls(session);
    known = host.truth();
    for (int i = 0; i < cuts; ++i) {
        // Some sessions have their beginning on disk, as the system wishes.
        host.change();
        const unsigned at = 1 + below(random, calls);
        const unsigned flushed = random() % 2 ? 1 + below(random, calls) : 0;
        unsigned seen = 0;
        bool done = true;
        Tracer().run(session, [&](const TracedCall&) {
            if (++seen == flushed) ::sync();
            if (seen != at) return 0;
            done = disk.cut();
            return Tracer::kKill;
        });
        if (!done) return kNoDisk;
        if (seen < at && !disk.cut()) return kNoDisk;
        if (!disk.remount()) return 2;
        const Answer answer = host.ask(FaultHost::kAnyAge, L"", compressed);
        if (answer.status != 0 || (answer.paths != known && answer.paths != host.truth())) {
            std::fprintf(stderr, "cut %d at call %u of %u: status %d, %zu paths\n", i, at, calls,
                         answer.status, answer.paths.size());
            return 3;
        }
        known = answer.paths;
        if (host.ask(FaultHost::kAnyAge, L"", compressed).paths != known) return 4;
    }
    return 0;
}

TEST_P(PowerCut, LeavesAGoodCacheOrAMarkedOne) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    const int outcome = inChild([] { return cutOften(GetParam(), 10 * faultScale()); });
    if (outcome == kNoDisk) GTEST_SKIP() << "no loop devices with ext4 here";
    EXPECT_EQ(outcome, 0);
    RecordProperty("cuts", 10 * faultScale());
}

std::string encodingName(const testing::TestParamInfo<bool>& form) {
    return form.param ? "Compressed" : "Fixed";
}

INSTANTIATE_TEST_SUITE_P(Encodings, PowerCut, testing::Bool(), encodingName);

}  // namespace
}  // namespace fscanner

#include "fscanner/engine/stamp_trust.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>

#include "fscanner/common/time.h"

namespace fscanner {

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

// Where the clock of files is asked before the directory, a change that gets the same time was
// never seen to come after the clock's next tick (4 ms where it was measured: ext2, ext3, ext4,
// xfs, btrfs, tmpfs). The slowest tick that kernels are built with is 10 ms; this is twice that.
constexpr std::uint64_t kTicks = 20'000'000;
// For what could not be measured: the coarsest step of a file system in use, FAT's.
constexpr std::uint64_t kUnmeasured = 2 * kSecond;

// The numbers are those of <linux/magic.h> and of the file systems' own sources. Left out, so
// that the age of a tree decides:
//
// - vfat, exfat: the root has no times, and others change theirs not with their entries.
// - FUSE, 9p, network file systems: the times are what a server says, when it says it.
// - overlay: a directory of two layers shows the times of the upper one, and the lower one may be
//   another at the next mount.
// - proc, sysfs and the like: entries come and go without a change of times.
constexpr StampTrust kTrusted[] = {
    // ext2, ext3, ext4: the entry and the time are changed together, with a journal also on disk.
    {0xEF53, kTicks},
    // xfs, btrfs: the same, in one transaction. Each subvolume of btrfs has a device number.
    {0x58465342, kTicks},
    {0x9123683E, kTicks},
    // tmpfs: both are in memory alone.
    {0x01021994, kTicks},
    // f2fs, zfs: as ext4, by their sources.
    {0xF2F52010, kUnmeasured},
    {0x2FC12FC1, kUnmeasured},
};

std::uint64_t nanoseconds(const timespec& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * kSecond +
           static_cast<std::uint64_t>(time.tv_nsec);
}

}  // namespace

DirectoryStamp::DirectoryStamp(const struct stat& info, std::uint64_t readAt)
    : device(info.st_dev),
      inode(info.st_ino),
      changed(nanoseconds(info.st_ctim)),
      modified(nanoseconds(info.st_mtim)),
      read(readAt) {}

namespace {

// A time after the reading is one of a clock that was set back.
bool isOlderThanReading(const DirectoryStamp& stamp, std::uint64_t step) {
    const auto age = static_cast<std::int64_t>(stamp.read - stamp.changed);
    return age > static_cast<std::int64_t>(step);
}

bool looksLike(const DirectoryStamp& kept, const DirectoryStamp& now) {
    return kept.exists() && kept.device == now.device && kept.inode == now.inode &&
           kept.changed == now.changed && kept.modified == now.modified;
}

}  // namespace

bool isRacy(const DirectoryStamp& stamp, std::uint64_t step) {
    return !isOlderThanReading(stamp, step) || stamp.changed % kSecond == 0;
}

bool isUnchanged(const DirectoryStamp& kept, const DirectoryStamp& now, std::uint64_t step) {
    return looksLike(kept, now) && !isRacy(kept, step);
}

bool isUntouched(const DirectoryStamp& kept, const DirectoryStamp& now, std::uint64_t step) {
    return looksLike(kept, now) && isOlderThanReading(kept, kSecond + step);
}

const StampTrust* findStampTrust(std::uint32_t type) {
    const auto found = std::find_if(std::begin(kTrusted), std::end(kTrusted),
                                    [type](const StampTrust& one) { return one.type == type; });
    return found == std::end(kTrusted) ? nullptr : found;
}

DirectoryStamp StampTaker::take(const Directory& directory) {
    const std::uint64_t now = getFileClock();
    struct stat info {};
    bool encrypted = false;
    if (directory.examine(info, encrypted) != 0) return {};
    if (!asked_ || info.st_dev != device_) {
        std::uint32_t type = 0;
        trust_ = directory.fileSystemType(type) == 0 ? findStampTrust(type) : nullptr;
        device_ = info.st_dev;
        asked_ = true;
    }
    // Where the names are encrypted, they change with the key and not with a time.
    return trust_ && !encrypted ? DirectoryStamp(info, now) : DirectoryStamp();
}

}  // namespace fscanner

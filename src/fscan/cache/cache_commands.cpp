#include "fscan/cache/cache_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "fscan/cache/cache_place.h"
#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/query/search_roots.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

namespace fs = std::filesystem;
using fscanner::FS_Cache;

std::uintmax_t sizeOf(const std::vector<std::wstring>& files) {
    std::uintmax_t size = 0;
    for (const std::wstring& file : files) {
        std::error_code error;
        const std::uintmax_t one = fs::file_size(toBytes(file), error);
        if (!error) size += one;
    }
    return size;
}

void writePlace(const CachePlace& place, Output& out) {
    out.writeLine("directory:  ", toBytes(place.directory));
}

void writeTree(const fscanner::FsCachedTree& tree, Output& out) {
    const long long age = std::max(0LL, static_cast<long long>(std::time(nullptr)) - tree.builtAt);
    const std::string ageText = durationText(static_cast<unsigned long long>(age));
    out.writeLine(fmt::format("{:>8} {:>11} {:>11}  ", ageText, tree.files, tree.directories),
                  toBytes(tree.path));
}

void writeReport(const fscanner::FsCacheReport& report, Output& out) {
    const unsigned long long all = report.records + report.removedRecords;
    out.write(fmt::format("records:    {}, and {} removed ones ({} %)\n", report.records,
                          report.removedRecords, all > 0 ? report.removedRecords * 100 / all : 0));
    if (!report.trees.empty()) out.write("\n     age       files directories  tree\n");
    for (const fscanner::FsCachedTree& tree : report.trees) writeTree(tree, out);
}

ExitStatus reportNone(const CachePlace& place, Output& out) {
    writePlace(place, out);
    out.write("no cache\n");
    return ExitStatus::nothingFound;
}

ExitStatus reportUnsound(const CachePlace& place) {
    complain(fmt::format("{}: the cache is marked or damaged; the next search makes it anew",
                         toBytes(place.directory)));
    return ExitStatus::failure;
}

/// The path without links, as the cache has it. The directory need not exist. Directories of a
/// remote file system are not touched, as its server may be dead.
std::wstring pathOf(const std::string& text, const DriveList& drives) {
    const auto mayTouch = [&drives](std::wstring_view path) {
        const fscanner::DriveInfo* const drive = drives.of(path);
        return drive == nullptr || !fscanner::fsIsServed(*drive);
    };
    return fscanner::fsResolvePath(toWide(text).c_str(), mayTouch);
}

}  // namespace

ExitStatus showCacheStatus(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const Output::NonBlocking nonBlocking(out);
    const LockedCache locked(place, options, LockedCache::Use::read);
    if (locked.status() == ExitStatus::failure) return ExitStatus::failure;
    const std::vector<std::wstring> files = place.files();
    if (files.empty()) return reportNone(place, out);
    writePlace(place, out);
    out.write(fmt::format("size:       {}\n", sizeText(sizeOf(files))));
    const bool marked = place.isMarked();
    out.write(
        fmt::format("state:      {}\n",
                    marked ? "its last use was interrupted: the next search mends it" : "good"));
    if (fscanner::fsCacheIsWatched(place.directory.c_str()))
        out.write("watch:      keeps it current\n");
    // A marked cache cannot be opened.
    if (marked) return ExitStatus::found;
    fscanner::FsCacheReport report;
    const bool opened = locked.open();
    if (opened && locked.get()->report(report))
        writeReport(report, out);
    else
        out.write("records:    unreadable: the next search makes it anew\n");
    if (opened) locked.get()->close();
    return ExitStatus::found;
}

ExitStatus checkCache(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const LockedCache locked(place, options, LockedCache::Use::change);
    if (locked.status() == ExitStatus::failure) return ExitStatus::failure;
    fscanner::FsCacheCheck check;
    if (!locked.get()) return reportNone(place, out);
    if (!locked.get()->check(check)) {
        complain(place.failure(fscanner::FS_CACHE_FAILURE));
        return ExitStatus::failure;
    }
    if (check.files == 0 && check.problems.empty()) return reportNone(place, out);
    writePlace(place, out);
    out.write(fmt::format("checked:    {} files, {}\n", check.files, sizeText(check.bytes)));
    for (const std::wstring& problem : check.problems)
        out.writeLine("problem:    ", toBytes(problem));
    const bool good = check.problems.empty();
    out.write(good ? "state:      good\n" : "state:      damaged: the next search makes it anew\n");
    return good ? ExitStatus::found : ExitStatus::failure;
}

ExitStatus compactCache(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const LockedCache locked(place, options, LockedCache::Use::change);
    if (locked.status() == ExitStatus::failure) return ExitStatus::failure;
    const std::uintmax_t before = sizeOf(place.files());
    if (before == 0) return reportNone(place, out);
    FS_Cache& cache = *locked.get();
    if (!locked.open()) return reportUnsound(place);
    if (!cache.close() || !cache.compact()) {
        complain(place.failure(fscanner::FS_CACHE_UNUSABLE));
        return ExitStatus::failure;
    }
    const std::uintmax_t after = sizeOf(place.files());
    out.write(fmt::format("{} before, {} after\n", sizeText(before), sizeText(after)));
    return ExitStatus::found;
}

ExitStatus forgetCachedTree(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const std::optional<DriveList> drives = DriveList::read();
    if (!drives) return ExitStatus::failure;
    const std::wstring path = pathOf(options.forgotten, *drives);
    const LockedCache locked(place, options, LockedCache::Use::change);
    if (locked.status() == ExitStatus::failure) return ExitStatus::failure;
    if (place.files().empty()) return reportNone(place, out);
    if (!locked.open()) return reportUnsound(place);
    bool found = false;
    FS_Cache& cache = *locked.get();
    const int code = cache.forget(path.c_str(), found);
    if (!cache.close() || !cache.compact() || code != fscanner::FS_CACHE_SUCCESS) {
        complain(place.failure(fscanner::FS_CACHE_UNUSABLE));
        return ExitStatus::failure;
    }
    if (found) return ExitStatus::found;
    complain(fmt::format("{}: not in the cache", options.forgotten));
    return ExitStatus::nothingFound;
}

// By name and not through the cache object, which knows the tables of one locale only.
ExitStatus clearCache(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const LockedCache locked(place, options, LockedCache::Use::change);
    if (locked.status() == ExitStatus::failure) return ExitStatus::failure;
    std::vector<std::wstring> files = place.files();
    if (files.empty()) return reportNone(place, out);
    // The tag is ours: the lock is refused in a directory with the tag of another program. The
    // lock's file goes last; a process that waits for the lock makes it again.
    for (std::wstring& file : fscanner::fsCachePlaceFiles(place.directory.c_str()))
        files.push_back(std::move(file));
    ExitStatus status = ExitStatus::found;
    for (const std::wstring& file : files) {
        std::error_code error;
        fs::remove(toBytes(file), error);
        if (!error) continue;
        complain(toBytes(file), error.value());
        status = ExitStatus::failure;
    }
    return status;
}

}  // namespace fscan

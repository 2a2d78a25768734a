#include "fscan/cache/cache_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "fscan/cache/cache_place.h"
#include "fscan/cache/locked_cache.h"
#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/query/drives.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

namespace fs = std::filesystem;
using fscanner::FS_Cache;

/// The endings of a table's names that a cache in `directory` has: one per locale and
/// encoding of numbers that was used. Each has a counter or, when interrupted, a mark.
std::set<std::string> cacheKinds(const std::string& directory) {
    constexpr std::string_view table = "directories.";
    constexpr std::string_view fresh = "_cpt";  // what is to take another's place is no kind
    std::set<std::string> kinds;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
        const fs::path name = entry.path().filename();
        const std::string stem = name.stem();
        if ((name.extension() == ".counter" || name.extension() == ".cuflag") &&
            stem.size() > table.size() && stem.starts_with(table) && !stem.ends_with(fresh))
            kinds.insert(stem.substr(table.size()));
    }
    return kinds;
}

/// The files that are there of all kinds: nothing else is ever touched.
std::vector<fs::path> cacheFiles(const CachePlace& place) {
    constexpr std::array<const char*, 17> forms = {"directories.{}.dat",
                                                   "directories.{}.pxx",
                                                   "directories.{}_idx.dat",
                                                   "directories.{}_ID.idx",
                                                   "directories.{}_PARENTID.idx",
                                                   "directories.{}_PATHNAME.idx",
                                                   "directories.{}.counter",
                                                   "directories.{}.cuflag",
                                                   "directories.{}.unread",
                                                   "directories.{}.sums",
                                                   "directories.{}.sums_new",
                                                   "directories.{}.undo",
                                                   "files.{}.dat",
                                                   "files.{}.pxx",
                                                   "files.{}_idx.dat",
                                                   "files.{}_FILENAME.idx",
                                                   "files.{}_PATHID.idx"};
    const std::string directory = toBytes(place.directory);
    std::vector<fs::path> files;
    for (const std::string& kind : cacheKinds(directory))
        for (const char* form : forms) {
            std::error_code error;
            const fs::path file = fs::path(directory) / fmt::format(fmt::runtime(form), kind);
            fs::path fresh = file;  // that was to take its place
            fresh.replace_filename(file.stem().native() + "_cpt" + file.extension().native());
            for (const fs::path& one : {file, fresh})
                if (fs::is_regular_file(fs::symlink_status(one, error))) files.push_back(one);
        }
    return files;
}

std::uintmax_t sizeOf(const std::vector<fs::path>& files) {
    std::uintmax_t size = 0;
    for (const fs::path& file : files) {
        std::error_code error;
        const std::uintmax_t one = fs::file_size(file, error);
        if (!error) size += one;
    }
    return size;
}

void writePlace(const CachePlace& place, Output& out) {
    out.write("directory:  ");
    out.writeForeign(toBytes(place.directory));
    out.write("\n");
}

void writeTree(const fscanner::FsCachedTree& tree, Output& out) {
    const long long age = std::max(0LL, static_cast<long long>(std::time(nullptr)) - tree.builtAt);
    const std::string ageText = durationText(static_cast<unsigned long long>(age));
    out.write(fmt::format("{:>8} {:>11} {:>11}  ", ageText, tree.files, tree.directories));
    out.writeForeign(toBytes(tree.path));
    out.write("\n");
}

void writeReport(const fscanner::FsCacheReport& report, Output& out) {
    const unsigned long long all = report.records + report.removedRecords;
    out.write(fmt::format("records:    {}, and {} removed ones ({} %)\n", report.records,
                          report.removedRecords, all > 0 ? report.removedRecords * 100 / all : 0));
    if (!report.trees.empty()) out.write("\n     age       files directories  tree\n");
    for (const fscanner::FsCachedTree& tree : report.trees) writeTree(tree, out);
}

int reportNone(const CachePlace& place, Output& out) {
    writePlace(place, out);
    out.write("no cache\n");
    return STATUS_NOTHING_FOUND;
}

int reportUnsound(const CachePlace& place) {
    complain(fmt::format("{}: the cache is marked or damaged; the next search makes it anew",
                         toBytes(place.directory)));
    return STATUS_FAILURE;
}

/// The path as the cache has it, without links. The directory need not be there, and the server
/// of one that is mounted need not answer.
std::wstring pathOf(const std::string& text, const DriveList& drives) {
    const auto mayTouch = [&drives](std::wstring_view path) {
        const fscanner::DriveInfo* const drive = drives.of(path);
        return drive == nullptr || !fscanner::fsIsServed(*drive);
    };
    return fscanner::fsResolvePath(toWide(text).c_str(), mayTouch);
}

}  // namespace

int showCacheStatus(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const Output::Impatience impatience(out);
    const LockedCache locked(place, options, LockedCache::Use::read);
    if (locked.status() == STATUS_FAILURE) return STATUS_FAILURE;
    const std::vector<fs::path> files = cacheFiles(place);
    if (files.empty()) return reportNone(place, out);
    writePlace(place, out);
    out.write(fmt::format("size:       {}\n", sizeText(sizeOf(files))));
    const bool marked = place.isMarked();
    out.write(
        fmt::format("state:      {}\n",
                    marked ? "its last use was interrupted: the next search mends it" : "good"));
    // Opening a marked cache is refused anyway.
    if (marked) return STATUS_FOUND;
    fscanner::FsCacheReport report;
    const bool opened = locked.open();
    if (opened && locked.get()->report(report))
        writeReport(report, out);
    else
        out.write("records:    unreadable: the next search makes it anew\n");
    if (opened) locked.get()->close();
    return STATUS_FOUND;
}

int checkCache(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const LockedCache locked(place, options, LockedCache::Use::change);
    if (locked.status() == STATUS_FAILURE) return STATUS_FAILURE;
    fscanner::FsCacheCheck check;
    if (!locked.get()) return reportNone(place, out);
    if (!locked.get()->check(check)) {
        complain(place.failure(fscanner::FS_CACHE_FAILURE));
        return STATUS_FAILURE;
    }
    if (check.files == 0 && check.problems.empty()) return reportNone(place, out);
    writePlace(place, out);
    out.write(fmt::format("checked:    {} files, {}\n", check.files, sizeText(check.bytes)));
    for (const std::wstring& problem : check.problems) {
        out.write("problem:    ");
        out.writeForeign(toBytes(problem));
        out.write("\n");
    }
    const bool good = check.problems.empty();
    out.write(good ? "state:      good\n" : "state:      damaged: the next search makes it anew\n");
    return good ? STATUS_FOUND : STATUS_FAILURE;
}

int compactCache(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const LockedCache locked(place, options, LockedCache::Use::change);
    if (locked.status() == STATUS_FAILURE) return STATUS_FAILURE;
    const std::uintmax_t before = sizeOf(cacheFiles(place));
    if (before == 0) return reportNone(place, out);
    FS_Cache& cache = *locked.get();
    if (!locked.open()) return reportUnsound(place);
    if (!cache.close() || !cache.compact()) {
        complain(place.failure(fscanner::FS_CACHE_UNUSABLE));
        return STATUS_FAILURE;
    }
    const std::uintmax_t after = sizeOf(cacheFiles(place));
    out.write(fmt::format("{} before, {} after\n", sizeText(before), sizeText(after)));
    return STATUS_FOUND;
}

int forgetCachedTree(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    const std::optional<DriveList> drives = DriveList::read();
    if (!drives) return STATUS_FAILURE;
    const std::wstring path = pathOf(options.forgotten, *drives);
    const LockedCache locked(place, options, LockedCache::Use::change);
    if (locked.status() == STATUS_FAILURE) return STATUS_FAILURE;
    if (cacheFiles(place).empty()) return reportNone(place, out);
    if (!locked.open()) return reportUnsound(place);
    bool found = false;
    FS_Cache& cache = *locked.get();
    const int code = cache.forget(path.c_str(), found);
    if (!cache.close() || !cache.compact() || code != fscanner::FS_CACHE_SUCCESS) {
        complain(place.failure(fscanner::FS_CACHE_UNUSABLE));
        return STATUS_FAILURE;
    }
    if (found) return STATUS_FOUND;
    complain(fmt::format("{}: not in the cache", options.forgotten));
    return STATUS_NOTHING_FOUND;
}

// By name and not through the cache object, which knows the tables of one locale only.
int clearCache(const Options& options, Output& out) {
    const CachePlace place = CachePlace::of(options);
    int status = STATUS_FOUND;
    {
        const LockedCache locked(place, options, LockedCache::Use::change);
        if (locked.status() == STATUS_FAILURE) return STATUS_FAILURE;
        std::vector<fs::path> files = cacheFiles(place);
        if (files.empty()) return reportNone(place, out);
        // A tag of another program would have kept us from the lock. The lock's file goes last:
        // who waits for it makes it again.
        for (const char* name : {"CACHEDIR.TAG", "fscanner.lock"})
            files.emplace_back(fs::path(toBytes(place.directory)) / name);
        for (const fs::path& file : files) {
            std::error_code error;
            fs::remove(file, error);
            if (!error) continue;
            complain(file.native(), error.value());
            status = STATUS_FAILURE;
        }
    }
    return status;
}

}  // namespace fscan

#include "fscan/search/watcher.h"

#include <algorithm>
#include <cerrno>

#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/output/progress_line.h"
#include "fscan/process/interruption.h"
#include "fscan/query/excludes.h"
#include "fscan/query/search_roots.h"
#include "fscan/search/matches.h"
#include "fscan/text/paths.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

using fscanner::FsScanProgress;
using fscanner::FsSkipReason;

namespace {

int errorOf(FsSkipReason reason, int error) {
    if (reason == FsSkipReason::tooLong) return ENAMETOOLONG;
    if (error != 0) return error;
    if (reason == FsSkipReason::denied) return EACCES;
    return reason == FsSkipReason::vanished ? ENOENT : EIO;
}

}  // namespace

Watcher::Watcher(const Parts& parts) : parts_(parts), previous_(fsSetScanObserver(this)) {}

void Watcher::expectCaching(bool caching) {
    caching_ = caching;
    cachedBefore_ = search_.cached.size();
    undecidedBefore_ = search_.undecided;
}

void Watcher::forgetCache() {
    search_.cached.resize(cachedBefore_);
    search_.undecided = undecidedBefore_;
}

bool Watcher::progress(const FsScanProgress& progress) {
    parts_.line.show(progress);
    return !Interruption::pending() && (caching_ || !parts_.matches.stopped());
}

void Watcher::finished(const FsScanProgress& totals) {
    parts_.line.erase();
    search_.addWalk(totals);
}

bool Watcher::isRoot(const std::wstring& path) const {
    const auto& roots = parts_.roots.roots;
    return std::any_of(roots.begin(), roots.end(),
                       [&path](const SearchRoot& root) { return root.real == path; });
}

void Watcher::skipped(const wchar_t* directory, FsSkipReason reason, int error) {
    const std::wstring path(withoutFinalSlash(directory));
    if (reason == FsSkipReason::excluded) parts_.excludes.cover(path);  // notes the match
    if (reason == FsSkipReason::excluded || reason == FsSkipReason::otherFileSystem) return;
    if (reason == FsSkipReason::noDrive) return;  // the result of the search tells it
    const SearchRoot& root = parts_.matches.root();
    if (caching_ ? parts_.excludes.cover(path) : !root.owns(path)) return;
    // A walk for the cache also reports directories of other roots.
    if (!reported_.insert(path).second) return;
    const bool isPath = isRoot(path);
    rootSkipped_ = rootSkipped_ || isPath;
    error = errorOf(reason, error);
    const bool named = isPath || parts_.options.errors;
    search_.skipped.push_back({root.shown(path), reason, error, named});
    if (!named) return;
    parts_.line.erase();
    complain(root.shown(path), error);
}

/// The criteria could not be evaluated as a whole. If the cause is a wildcard in the file's name,
/// only the name patterns failed, and the rest of the criteria decides.
void Watcher::undecided(const fscanner::FsFileInfo& file) {
    if (!parts_.matches.nameFits(file.getName())) return;
    if (parts_.where == nullptr || parts_.where->matches(file)) {
        parts_.line.erase();
        parts_.matches.add(file.getPath(), file.getName(), &file);
    } else if (parts_.where->undecided() &&
               parts_.matches.admits(file.getPath(), file.getName(), &file)) {
        noteUndecided(file);
    }
}

void Watcher::noteUndecided(const fscanner::FsFileInfo& file) {
    ++search_.undecided;
    if (!parts_.options.errors) return;
    parts_.line.erase();
    std::string path = parts_.matches.root().shown(withoutFinalSlash(file.getPath()));
    if (!path.ends_with('/')) path += '/';
    complain(path + toBytes(file.getName()) + ": the criteria cannot be decided");
}

bool Watcher::waiting(unsigned elapsedMilliseconds) {
    parts_.line.showWaiting(elapsedMilliseconds);
    return !Interruption::pending();
}

void Watcher::fromCache(const wchar_t* path, unsigned ageSeconds) {
    const std::wstring_view directory = withoutFinalSlash(path);
    search_.cached.push_back({parts_.matches.root().shown(directory), ageSeconds});
}

}  // namespace fscan

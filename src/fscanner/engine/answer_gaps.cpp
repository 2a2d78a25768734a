#include "fscanner/engine/answer_gaps.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/common/path_text.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/path_resolver.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

namespace {

// Whether the entry names a drive group or a drive that does not exist.
bool isMalformed(const PathInfo& text, const QueryPlan& plan) {
    const std::optional<PathEntry> entry = parsePathEntry(text, plan.mounted());
    return !entry || !entry->valid || !entry->knownMedia;
}

void tell(const PathInfo& entry) {
    if (FsScanObserver* const observer = scanObserver())
        observer->skipped(entry.getPathName(), FsSkipReason::noDrive, 0);
}

}  // namespace

// A valid entry may lead nowhere on purpose, such as the remote part of a local tree. That is
// a gap only if nothing else is searched either.
AnswerGaps::AnswerGaps(const FsQuery& query, const QueryPlan& plan)
    : missedBefore_(std::exchange(fileProgramMissed(), false)) {
    const ResolvedPaths& included = plan.included();
    pathsMissing_ =
        !query.getIncludedPaths().empty() && plan.pairs().empty() && included.excluded.empty();
    for (const PathDrive& entry : included.unresolved) {
        tell(entry.path);
        pathsMissing_ = pathsMissing_ || isMalformed(entry.path, plan);
    }
    for (const PathDrive& entry : plan.excluded().unresolved) {
        if (!isMalformed(entry.path, plan)) continue;
        tell(entry.path);
        pathsMissing_ = true;
    }
}

AnswerGaps::~AnswerGaps() {
    fileProgramMissed() = missedBefore_;
}

Status AnswerGaps::resultOf(Status status) const {
    if (status != Status::success) return status;
    if (fileProgramMissed()) return Status::noFileProgram;
    return pathsMissing_ ? Status::noDrive : Status::success;
}

// ---- Exclusions -------------------------------------------------------------

ExclusionWatch::ExclusionWatch(const std::vector<PathInfo>& exclusions, bool caseSensitive)
    : caseSensitive_(caseSensitive) {
    if (!scanObserver()) return;
    for (const PathInfo& exclusion : exclusions)
        if (exclusion.getPathName()) others_.push_back(&exclusion);
}

bool ExclusionWatch::covers(const PathInfo& exclusion, const wchar_t* directory) const {
    return wildvcpathcmp(exclusion.getPathName(), directory, exclusion.getRecursive(),
                         caseSensitive_) != 0;
}

void ExclusionWatch::met(const wchar_t* directory) {
    const auto isThis = [&](const PathInfo* exclusion) { return covers(*exclusion, directory); };
    FsScanObserver* const observer = scanObserver();
    if (std::erase_if(others_, isThis) > 0 && observer)
        observer->skipped(directory, FsSkipReason::excluded, 0);
}

void ExclusionWatch::lookUpOthers(CacheStore& store,
                                  const std::function<bool(const wchar_t*)>& isSearched) {
    // A directory that is met for one of them may be met for others, which leave the list too.
    while (!others_.empty()) {
        const PathInfo* const exclusion = others_.back();
        lookUp(store, *exclusion, isSearched);
        std::erase(others_, exclusion);
    }
}

// Directories with the last name of the pattern are looked up in the index. If that name has
// a wildcard, all directories are tested.
void ExclusionWatch::lookUp(CacheStore& store, const PathInfo& exclusion,
                            const std::function<bool(const wchar_t*)>& isSearched) {
    const std::wstring text = exclusion.getPathName();
    const std::wstring name = lastName(text);
    RecordSet directories = store.directories().openRecordSet();
    DirectoryChain chain(store);
    bool found = false;
    if (name.empty() || checkWildCard(name.c_str())) {
        directories.setCriteria(nullptr, true);
        found = directories.moveFirst();
    } else {
        found = store.lookups().byPathName(directories, name, caseSensitive_);
    }
    for (; found; found = directories.moveNext()) {
        if (!chain.enter(directories.getFieldAsInt32(DIRECTORIES_ID))) continue;
        const wchar_t* const path = chain.path().c_str();
        if (!covers(exclusion, path) || !isSearched(path)) continue;
        met(path);
        break;
    }
    store.directories().closeRecordSet(directories);
}

}  // namespace fscanner

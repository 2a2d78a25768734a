#include "fscanner/engine/fsbuild.h"

#include <cerrno>
#include <new>

#include "fscanner/common/debug.h"
#include "fscanner/common/utf8.h"
#include "fscanner/discovery/filesystemhelper.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/answer_gaps.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/fs/no_throw.h"

namespace fscanner {

namespace {

// Tests each file and writes the matching ones. Uses one record for the whole walk, because to make
// a record for each file would cost allocations.
class DirectSink : public WalkSink {
public:
    DirectSink(FsResultSetWriter& writer, FileProcessor& processor, bool facts)
        : writer_(writer), processor_(processor), facts_(facts) {}

    void file(WalkEntry& entry) override;
    void enter(const WalkEntry&) override {}
    void leave() override {}
    bool wants(const WalkEntry& directory, const std::wstring& path) override;

private:
    void begin(const WalkEntry& entry);
    void fill(WalkEntry& entry);

    FsResultSetWriter& writer_;
    FileProcessor& processor_;
    bool facts_;  // records carry all of them
    FsFileInfo record_;
    unsigned long long directoryNumber_ = 0;
};

void DirectSink::file(WalkEntry& entry) {
    if (processor_.rejects(entry)) return;  // most files, before their names are widened
    begin(entry);
    if (processor_.needsInfo()) fill(entry);
    if (processor_.satisfyCriteria(record_, nullptr)) {
        if (facts_)
            fill(entry);
        else if (entry.isDirectory())
            record_.setFileAttr(FS_ATTR_DIRECTORY);
        writer_.addRecord(record_);
    } else if (FsScanObserver* const observer = scanObserver();
               observer && processor_.undecided()) {
        fill(entry);
        observer->undecided(record_);
    }
}

bool DirectSink::wants(const WalkEntry&, const std::wstring& path) {
    FsScanObserver* const observer = scanObserver();
    return !observer || observer->enters(path.c_str());
}

void DirectSink::begin(const WalkEntry& entry) {
    record_.forgetInfo();
    record_.setFileName(entry.name().c_str());
    if (entry.directoryNumber() != directoryNumber_) {
        directoryNumber_ = entry.directoryNumber();
        record_.setFilePath(entry.directory().c_str());
    }
    // Without its name, for lack of memory, the record would be tested as another file.
    if (record_.hasError()) throw std::bad_alloc();
}

void DirectSink::fill(WalkEntry& entry) {
    if (record_.hasError()) return;
    if (const struct stat* info = entry.info()) {
        record_.updateFrom(*info);
        return;
    }
    if (entry.isDirectory()) record_.setFileAttr(FS_ATTR_DIRECTORY);
    if (entry.isUntouched()) record_.setFileSize(0);
    if (!entry.isUntouched() || processor_.needsInfo()) record_.setError();
}

DfsState& dfsState() {
    static thread_local DfsState state;
    return state;
}

// 0 if the path is a directory, ENOTDIR if it is anything else, or why it cannot be examined.
int examineStart(const wchar_t* path) {
    if (!path) {
        debug("::isValidPath - path name specified is null\n");
        return ENOENT;
    }
    bool isDirectory = false;
    const int error = examineDirectory(toMultibyte(path).c_str(), isDirectory);
    if (error != 0)
        debug("::isValidPath - error %u opening '%ls' path\n", static_cast<unsigned>(error), path);
    return error != 0 || isDirectory ? error : ENOTDIR;
}

}  // namespace

bool fs_isValidPath(const wchar_t* path) {
    return examineStart(path) == 0;
}

int fs_examineSearched(const wchar_t* path) {
    const int error = examineStart(path);
    FsScanObserver* const observer = scanObserver();
    if (error != 0 && path && observer) observer->skipped(path, skipReason(error), error);
    return error;
}

namespace {

WalkStatus scan(FsResultSetWriter& writer, FileProcessor& processor, const WalkRequest& request,
                bool facts = true) {
    DirectSink sink(writer, processor, facts);
    const LogPrefix prefix{"::fs_scan", &dfsState()};
    return walkTree(request, sink, prefix);
}

WalkStatus build(FsResultSetWriter& writer, FileProcessor& processor, const WalkRequest& request,
                 bool facts = true) {
    const wchar_t* path = request.path;
    if (path && checkPathList(path, request.exclude, request.caseSensitive, request.recursive)) {
        debug("::fs_build - path '%ls' excluded!\n", path);
        return WalkStatus::finished;
    }
    if (fs_examineSearched(path) != 0) {
        debug("::fs_build - '%ls' is a symbolic link or is not a directory!\n", path);
        return WalkStatus::finished;
    }
    return scan(writer, processor, request, facts);
}

}  // namespace

// ---- Queries ----------------------------------------------------------------

WalkStatus scanPair(FsResultSetWriter& writer, const FsQuery& query, const QueryPlan& plan,
                    FileProcessor& processor, const PathDrive& pair, unsigned timeout) {
    const EntryChoice choice = plan.choiceFor(query, pair);
    if (choice.depth.most == 0) return WalkStatus::finished;
    return build(writer, processor,
                 {.path = pair.path.getPathName(),
                  .recursive = pair.path.getRecursive(),
                  .drive = pair.drive,
                  .include = {},
                  .exclude = plan.exclusions(pair),
                  .caseSensitive = query.getCaseSensitive(),
                  .timeoutMilliseconds = timeout,
                  .mounts = &plan.stopsOf(query),
                  .choice = choice,
                  .links = query.getLinks(),
                  .oneFileSystem = query.getOneFileSystem(),
                  .entersLinked = [&plan](const auto& path) { return plan.searches(path); },
                  .ahead = {.wanted = true, .facts = processor.needsInfoAlone()}},
                 query.getFacts());
}

namespace {

Status scanQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeout) {
    QueryPlan plan;
    if (!plan.make(query)) return Status::unusable;
    const AnswerGaps gaps(query, plan);
    FileProcessor processor(query.getQuery(), query.getCriteriaCaseSensitive(),
                            CriteriaRules::search);
    for (const PathDrive& pair : plan.pairs()) {
        debug("::fsScanQuery - scanning [%ls] path...\n", pair.path.getPathName());
        const unsigned limit = QueryPlan::isLocal(pair) ? timeout : kNoTimeout;
        if (scanPair(writer, query, plan, processor, pair, limit) == WalkStatus::timedOut)
            return Status::queryTimedOut;
    }
    return gaps.resultOf(Status::success);
}

}  // namespace

int fsScanQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeoutMilliseconds) {
    const CommandListShelter shelter;  // a writer or observer may call this during a query
    CheckedWriter checked(writer);
    return checked.codeOf(noThrow("::fsScanQuery", Status::unusable,
                                  [&] { return scanQuery(checked, query, timeoutMilliseconds); }));
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

namespace {

// 0 or 2, as hosts expect it.
int codeOf(WalkStatus status) {
    return status == WalkStatus::finished ? 0 : 2;
}

WalkRequest requestOf(const PathDrive& pair, const std::vector<PathInfo>& include,
                      const std::vector<PathInfo>& exclude, bool caseSensitive, unsigned timeout,
                      const MountMap* mounts) {
    return {pair.path.getPathName(),
            pair.path.getRecursive(),
            pair.drive,
            include,
            exclude,
            caseSensitive,
            timeout,
            mounts};
}

}  // namespace

int fs_scan(FsResultSetWriter& writer, FileProcessor& processor, const PathDrive& pathDrive,
            const std::vector<PathInfo>& includeList, const std::vector<PathInfo>& excludeList,
            bool caseSensitive, unsigned timeout, const MountMap* mounts) {
    return codeOf(
        scan(writer, processor,
             requestOf(pathDrive, includeList, excludeList, caseSensitive, timeout, mounts)));
}

int fs_build(FsResultSetWriter& writer, FileProcessor& processor, const PathDrive& pathDrive,
             const std::vector<PathInfo>& includeList, const std::vector<PathInfo>& excludeList,
             bool caseSensitive, unsigned timeout, const MountMap* mounts) {
    return codeOf(
        build(writer, processor,
              requestOf(pathDrive, includeList, excludeList, caseSensitive, timeout, mounts)));
}

}  // namespace fscanner

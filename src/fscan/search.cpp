#include "search.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>

#include "criteria.h"
#include "drives.h"
#include "excludes.h"
#include "exit_status.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "messages.h"
#include "name_filter.h"
#include "options.h"
#include "output.h"
#include "query_builder.h"
#include "record_printer.h"
#include "search_roots.h"
#include "text.h"

namespace fscan {

namespace {

using fscanner::FsFileInfo;

/// As good as none: the engine counts milliseconds in 32 bits.
constexpr unsigned noTimeout = std::numeric_limits<int>::max();

/// What is found while one root is searched, on its way to the printer.
class Matches {
public:
    Matches(const Excludes& excludes, const NameFilter& names, RecordPrinter& printer)
        : excludes_(excludes), names_(names), printer_(printer) {}

    void setRoot(const SearchRoot& root) {
        root_ = &root;
        directory_.clear();
    }
    const SearchRoot& root() const { return *root_; }

    bool nameFits(const FsFileInfo& record) const { return names_.accepts(record.getName()); }

    /// Prints the record, unless another root reports it or it is left out.
    void add(const FsFileInfo& record) {
        if (directory_ != record.getPath()) enter(record.getPath());
        if (!owned_ || excludes_.cover(directory_, record.getName())) return;
        path_.resize(prefixLength_);
        path_ += toBytes(record.getName());
        printer_.print(record, path_);
    }

private:
    /// Records come a directory at a time: what depends on it is computed once.
    void enter(const wchar_t* directory) {
        directory_ = directory;
        const std::wstring_view path = withoutFinalSlash(directory_);
        owned_ = root_->owns(path);
        path_ = root_->shown(path);
        if (!path_.ends_with('/')) path_ += '/';
        prefixLength_ = path_.size();
    }

    const Excludes& excludes_;
    const NameFilter& names_;
    RecordPrinter& printer_;
    const SearchRoot* root_ = nullptr;
    std::wstring directory_;
    bool owned_ = true;
    std::string path_;
    std::size_t prefixLength_ = 0;
};

/// Takes the engine's matches.
class MatchWriter : public fscanner::FsResultSetWriter {
public:
    explicit MatchWriter(Matches& matches) : matches_(matches) {}

    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override {
        FsFileInfo record;
        record.setFilePath(path);
        record.setFileName(name);
        record.setFileSize(size);
        record.setFileAttr(attributes);
        return addRecord(record);
    }
    int addRecord(const FsFileInfo& record) override {
        if (matches_.nameFits(record)) matches_.add(record);
        return 0;
    }
    int close() override { return 0; }

private:
    Matches& matches_;
};

/// Watches the walk: warns of directories that could not be searched, decides on
/// files that the criteria could not, and stops when nobody reads on.
class Watcher : public fscanner::FsScanObserver {
public:
    Watcher(Matches& matches, fscanner::FsRecordFilter* where, const Output& out)
        : matches_(matches), where_(where), out_(out), previous_(fsSetScanObserver(this)) {}
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher() override { fsSetScanObserver(previous_); }

    bool progress(const fscanner::FsScanProgress&) override { return out_.error() == 0; }

    void skipped(const wchar_t* directory, fscanner::FsSkipReason reason, int error) override {
        using enum fscanner::FsSkipReason;
        if (reason == excluded || reason == otherFileSystem) return;
        const std::wstring_view path = withoutFinalSlash(directory);
        if (!matches_.root().owns(path)) return;
        if (path == matches_.root().real) incomplete_ = true;
        if (reason == tooLong) error = ENAMETOOLONG;
        if (reason == denied && error == 0) error = EACCES;
        if (error == 0) error = reason == vanished ? ENOENT : EIO;
        complain(matches_.root().shown(path), error);
    }

    /// The criteria failed as a whole. A name with a wildcard in it does that to
    /// the name patterns; the user's own criteria may well hold.
    void undecided(const FsFileInfo& file) override {
        if (!matches_.nameFits(file)) return;
        if (where_ == nullptr || where_->matches(file)) matches_.add(file);
    }

    bool incomplete() const { return incomplete_; }

private:
    Matches& matches_;
    fscanner::FsRecordFilter* where_;
    const Output& out_;
    fscanner::FsScanObserver* previous_;
    bool incomplete_ = false;
};

std::wstring bothCriteria(const std::wstring& names, const std::wstring& where) {
    if (names.empty() || where.empty()) return names + where;
    return names + L" && " + where;
}

/// Drops the roots that no drive covers. False where there was one.
bool keepMounted(SearchRoots& roots, const DriveList& drives) {
    const auto unmounted = [&drives](const SearchRoot& root) {
        if (drives.of(root.real) != nullptr) return false;
        complain(fmt::format("{}: lies on no mounted file system", root.given));
        return true;
    };
    return std::erase_if(roots.roots, unmounted) == 0;
}

/// Searches the roots one after the other, so that each file is reported once,
/// below the PATH that it belongs to.
int searchRoots(const Options& options, const SearchRoots& roots, fscanner::FsQuery& query,
                Matches& matches, const Output& out) {
    MatchWriter writer(matches);
    int status = STATUS_FOUND;
    for (const SearchRoot& root : roots.roots) {
        matches.setRoot(root);
        setSearchedPath(options, root.real, query);
        const int code = fscanner::fsScanQuery(writer, query, noTimeout);
        if (out.error() != 0) break;
        if (code == -40) {
            complain("the mount table cannot be read");
            return STATUS_FAILURE;
        }
        if (code != 0) {
            complain(fmt::format("{}: the search ended early", root.given));
            status = STATUS_INCOMPLETE;
        }
    }
    return status;
}

}  // namespace

int runSearch(const Options& options, Output& out) {
    const std::optional<std::wstring> where = combineCriteria(options.criteria);
    SearchRoots roots = SearchRoots::resolve(options);
    if (!where || roots.wrong) return STATUS_USAGE;
    const std::optional<DriveList> drives = DriveList::read();
    if (!drives) return STATUS_FAILURE;
    const bool mounted = keepMounted(roots, *drives);

    const Excludes excludes(options);
    const NameFilter names(options);
    fscanner::FsQuery query;
    fillQuery({options, roots, excludes, *drives, bothCriteria(names.criteria(), *where)}, query);

    RecordPrinter printer(options, out);
    Matches matches(excludes, names, printer);
    std::unique_ptr<fscanner::FsRecordFilter> filter;
    if (!where->empty())
        filter = fscanner::FsRecordFilter::create(where->c_str(), !options.ignoreCase);
    const Watcher watcher(matches, filter.get(), out);

    int status = searchRoots(options, roots, query, matches, out);
    printer.finish();
    if (!mounted || roots.incomplete || watcher.incomplete())
        status = std::max<int>(status, STATUS_INCOMPLETE);
    if (status == STATUS_FOUND && printer.count() == 0) status = STATUS_NOTHING_FOUND;
    return status;
}

}  // namespace fscan

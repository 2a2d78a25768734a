#include "fscan/search/matches.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "fscan/match/match.h"
#include "fscan/output/progress_line.h"
#include "fscan/process/interruption.h"
#include "fscan/query/filters.h"
#include "fscan/query/search_roots.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

using fscanner::FsFileInfo;

namespace {

/// Ignores a record. The search will end soon, and is given the time to close the cache.
int discard() {
    Interruption::answering();
    return 0;
}

/// As far as the search knows: the system is not asked.
bool isDirectory(const FsFileInfo* record) {
    constexpr unsigned attributes = 1;  // a bit of the mask
    return record != nullptr && (record->knownMask() & attributes) != 0 &&
           (record->getAttr() & fscanner::FS_ATTR_DIRECTORY) != 0;
}

}  // namespace

void Matches::setRoot(const SearchRoot& root) {
    root_ = &root;
    directory_.clear();
    ignoreRules_.reset();
    if (ignored_.any()) ignoreRules_.emplace(root.real, ignored_);
}

bool Matches::enters(const wchar_t* directory) {
    return !ignoreRules_ || ignoreRules_->enters(directory);
}

bool Matches::nameFits(const wchar_t* name) const {
    return names_.accepts(name);
}

bool Matches::confirmsName(const wchar_t* name) const {
    return names_.confirms(name);
}

bool Matches::admits(const wchar_t* directory, const wchar_t* name, const FsFileInfo* record) {
    return select(directory, name, record, isDirectory(record));
}

bool Matches::select(const wchar_t* directory, const wchar_t* name, const FsFileInfo* record,
                     bool isDirectory) {
    if (directory_ != directory) enter(directory);
    if (!owned_ || excludes_.cover(directory_, name)) return false;
    if (!filters_.pathFits(directory_, name)) return false;
    if (ignoreRules_ && ignoreRules_->covers(directory_, name, isDirectory)) return false;
    return record == nullptr || !needRecords() || examine(name, *record);
}

void Matches::add(const wchar_t* directory, const wchar_t* name, const FsFileInfo* record,
                  bool isDirectory) {
    details_ = {};
    if (!select(directory, name, record, isDirectory)) return;
    FileFacts facts;
    if (needed_ > FactsNeeded::none) facts = details_.facts();
    if (isDirectory) facts.attributes |= fscanner::FS_ATTR_DIRECTORY;
    if (needPath()) {
        path_.resize(prefixLength_);
        appendBytes(path_, name);
    }
    ++added_;
    if (!stopped_) stopped_ = !sink_.take({path_, prefixLength_, facts, &details_});
}

void Matches::add(const FsFileInfo& record) {
    add(record.getPath(), record.getName(), &record, isDirectory(&record));
}

/// A record of a scan has all facts, of the moment when the file was found. One of a cache
/// lacks the times, and its size may be old, so the file is examined again. False where the
/// file is left out.
bool Matches::examine(const wchar_t* name, const FsFileInfo& record) {
    FileDetails& file = details_;
    file = FileDetails::of(record);
    const unsigned attributes = file.attributes;
    auto found = FileExaminer::Found::there;
    const bool decides = filters_.needDetails();
    name_.clear();
    appendBytes(name_, name);
    if (filters_.needSystem() ||
        (!file.examined && (decides || needed_ == FactsNeeded::examined))) {
        struct stat info {};
        found = examiner_.examine(directory_, name_.c_str(), info);
        if (found == FileExaminer::Found::there) file = FileDetails::of(info);
        if (sameKind_ && file.examined && !isSameKind(attributes, file.attributes))
            found = FileExaminer::Found::changed;
    }
    if (found == FileExaminer::Found::gone || found == FileExaminer::Found::changed ||
        (decides && !file.examined)) {
        examiner_.leaveOut(found);
        return false;
    }
    return !decides || (filters_.accept(file) && hasEmptiness(file));
}

/// Whether a directory has entries, or none, where that is asked for. One that cannot be read is
/// left out.
bool Matches::hasEmptiness(const FileDetails& file) {
    const std::optional<bool> wanted = filters_.emptiness();
    if (!wanted || (file.attributes & fscanner::FS_ATTR_DIRECTORY) == 0) return true;
    const std::optional<bool> empty = examiner_.isEmpty(directory_, name_.c_str());
    if (!empty) examiner_.leaveOut(FileExaminer::Found::unknown);
    return empty && *empty == *wanted;
}

/// Consecutive records share a directory: values that depend on it are computed once.
void Matches::enter(const wchar_t* directory) {
    directory_ = directory;
    const std::wstring_view path = withoutFinalSlash(directory_);
    owned_ = root_->owns(path);
    if (!needPath()) return;
    path_.clear();
    root_->appendShown(path, path_);
    if (!path_.ends_with('/')) path_ += '/';
    prefixLength_ = path_.size();
}

int MatchWriter::addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                           unsigned attributes) {
    if (Interruption::pending() || matches_.stopped()) return discard();
    // Making a record would copy the texts.
    if (!matches_.needRecords())
        return add(path, name, nullptr, (attributes & fscanner::FS_ATTR_DIRECTORY) != 0);
    FsFileInfo record;
    record.setFilePath(path);
    record.setFileName(name);
    record.setFileSize(size);
    record.setFileAttr(attributes);
    return addRecord(record);
}

int MatchWriter::addRecord(const FsFileInfo& record) {
    if (Interruption::pending()) return discard();
    return add(record.getPath(), record.getName(), &record, isDirectory(&record));
}

int MatchWriter::add(const wchar_t* path, const wchar_t* name, const FsFileInfo* record,
                     bool isDirectory) {
    if (!matches_.confirmsName(name)) return 0;
    line_.erase();
    matches_.add(path, name, record, isDirectory);
    return 0;
}

// ---- Looking at a file again ------------------------------------------------

namespace {

/// Whether the error means that the file is gone, or a directory of its path was replaced by a
/// link or another file.
bool meansGone(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ESTALE;
}

}  // namespace

FileExaminer::~FileExaminer() {
    for (const Directory& directory : directories_)
        if (directory.descriptor >= 0) close(directory.descriptor);
}

/// Looks at the latest directories first. A new one takes the place of the oldest.
const FileExaminer::Directory& FileExaminer::enter(const std::wstring& path) {
    constexpr std::size_t count = std::tuple_size_v<decltype(directories_)>;
    for (std::size_t back = 0; back < count; ++back) {
        const Directory& known = directories_[(current_ + count - back) % count];
        if (known.path == path) return known;
    }
    current_ = (current_ + 1) % count;
    Directory& directory = directories_[current_];
    if (directory.descriptor >= 0) close(directory.descriptor);
    directory.path = path;
    directory.descriptor = open(path);
    directory.error = directory.descriptor < 0 ? errno : 0;
    return directory;
}

FileExaminer::Found FileExaminer::examine(const std::wstring& directory, const char* name,
                                          struct stat& info) {
    const Directory& place = enter(directory);
    int error = place.error;
    if (error == 0 && examineAt(place.descriptor, name, info) != 0) error = errno;
    if (error != 0) return meansGone(error) ? Found::gone : Found::unknown;
    return S_ISDIR(info.st_mode) && !directoriesCount_ ? Found::gone : Found::there;
}

int FileExaminer::open(const std::wstring& path) const {
    if (!follow_) return fscanner::fsOpenDirectory(path.c_str());
    return ::open(toBytes(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

/// A link that leads nowhere is what it is.
int FileExaminer::examineAt(int directory, const char* name, struct stat& info) const {
    if (follow_ && fstatat(directory, name, &info, 0) == 0) return 0;
    return fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW);
}

std::optional<bool> FileExaminer::isEmpty(const std::wstring& directory, const char* name) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | (follow_ ? 0 : O_NOFOLLOW);
    const int descriptor = openat(enter(directory).descriptor, name, flags);
    DIR* const stream = descriptor >= 0 ? fdopendir(descriptor) : nullptr;
    if (stream == nullptr) {
        if (descriptor >= 0) close(descriptor);
        return std::nullopt;
    }
    errno = 0;
    bool empty = true;
    while (const dirent* const entry = empty ? readdir(stream) : nullptr) {
        const std::string_view one = entry->d_name;
        empty = one == "." || one == "..";
    }
    const bool failed = empty && errno != 0;
    closedir(stream);
    return failed ? std::nullopt : std::optional(empty);
}

const std::wstring& MatchPlace::directoryOf(const Match& match) {
    if (directory_.empty() || match.directory() != shown_) {
        shown_ = match.directory();
        directory_ = roots_.realOf(shown_);
    }
    return directory_;
}

bool DetailedMatches::take(const Match& match) {
    if (match.details != nullptr && !to_.lacks(*match.details)) return to_.take(match);
    struct stat info {};
    const std::wstring& directory = place_.directoryOf(match);
    const auto found = examiner_.examine(directory, std::string(match.name()).c_str(), info);
    if (found == FileExaminer::Found::gone) {
        examiner_.leaveOut(found);
        return true;
    }
    FileDetails details =
        found == FileExaminer::Found::there ? FileDetails::of(info) : FileDetails::of(match.facts);
    details.directory = directory;
    Match detailed = match;
    detailed.details = &details;
    return to_.take(detailed);
}

}  // namespace fscan

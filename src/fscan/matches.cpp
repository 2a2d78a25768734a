#include "matches.h"

#include "excludes.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "interruption.h"
#include "name_filter.h"
#include "progress_line.h"
#include "search_roots.h"
#include "text.h"

namespace fscan {

using fscanner::FsFileInfo;

namespace {

/// Of a file that is gone since a cache saw it the time is not known.
FileFacts factsOf(const FsFileInfo& record, FactsNeeded needed) {
    const bool there = needed == FactsNeeded::examined && record.updateInfo();
    return {there, record.getAttr(), record.getSize(), there ? record.getLastModifyTime() : 0};
}

/// What follows is quick: the cache is to be closed properly.
int discard() {
    Interruption::answering();
    return 0;
}

}  // namespace

void Matches::setRoot(const SearchRoot& root) {
    root_ = &root;
    directory_.clear();
}

bool Matches::nameFits(const wchar_t* name) const {
    return names_.accepts(name);
}

bool Matches::confirmsName(const wchar_t* name) const {
    return names_.confirms(name);
}

bool Matches::admits(const wchar_t* directory, const wchar_t* name, const FsFileInfo* record) {
    if (directory_ != directory) enter(directory);
    return owned_ && !excludes_.cover(directory_, name) &&
           filters_.accept(directory_, name, record);
}

void Matches::add(const wchar_t* directory, const wchar_t* name, const FsFileInfo* record) {
    if (!admits(directory, name, record)) return;
    if (needPath()) {
        path_.resize(prefixLength_);
        appendBytes(path_, name);
    }
    const bool bare = needed_ <= FactsNeeded::none || record == nullptr;
    const FileFacts facts = bare ? FileFacts() : factsOf(*record, needed_);
    if (!stopped_) stopped_ = !sink_.take({path_, prefixLength_, facts});
}

/// Records come a directory at a time: what depends on it is computed once.
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
    // A record would copy the texts.
    if (!matches_.needRecords()) return add(path, name, nullptr);
    FsFileInfo record;
    record.setFilePath(path);
    record.setFileName(name);
    record.setFileSize(size);
    record.setFileAttr(attributes);
    return addRecord(record);
}

int MatchWriter::addRecord(const FsFileInfo& record) {
    if (Interruption::pending()) return discard();
    return add(record.getPath(), record.getName(), &record);
}

int MatchWriter::add(const wchar_t* path, const wchar_t* name, const FsFileInfo* record) {
    if (!matches_.confirmsName(name)) return 0;
    line_.erase();
    matches_.add(path, name, record);
    return 0;
}

}  // namespace fscan

#include "fscanner/fs/fs_query.h"

#include <new>
#include <optional>
#include <string>
#include <utility>

namespace fscanner {

namespace {

constexpr unsigned kCaseInsensitive = 1;
constexpr unsigned kLastCaseMode = 2;

template <typename Entry, typename... Flags>
bool append(std::vector<Entry>& list, const wchar_t* text, Flags... flags) {
    if (text == nullptr) return false;
    try {
        list.emplace_back(text, flags...);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

template <typename Entry>
bool clearList(std::vector<Entry>& list) {
    list.clear();
    return true;
}

}  // namespace

struct FsQueryData {
    std::optional<std::wstring> query;
    unsigned caseMode = kLastCaseMode;
    bool criteriaCaseSensitive = true;
    unsigned kinds = FS_KINDS_BUT_DIRECTORIES;
    FsDepthRange depth;
    FsLinks links = FsLinks::leave;
    bool facts = true;
    bool oneFileSystem = false;
    std::vector<PathInfo> includedPaths;
    std::vector<PathInfo> excludedPaths;
    std::vector<FileSystemInfo> excludedFileSystems;
    std::vector<FileSystemInfo> includedFileSystems;
};

FsQuery::FsQuery() : data_(std::make_unique<FsQueryData>()) {}

FsQuery::~FsQuery() = default;

bool FsQuery::addIncludePath(const wchar_t* path, bool recursive) {
    return append(data_->includedPaths, path, recursive);
}

bool FsQuery::addExcludePath(const wchar_t* path, bool recursive) {
    return append(data_->excludedPaths, path, recursive);
}

bool FsQuery::addIncludeFileSystem(const wchar_t* name) {
    return append(data_->includedFileSystems, name);
}

bool FsQuery::addExcludeFileSystem(const wchar_t* name) {
    return append(data_->excludedFileSystems, name);
}

bool FsQuery::setSimpleQuery(const wchar_t*, unsigned int) {
    return false;
}

bool FsQuery::setQuery(const wchar_t* text) try {
    if (text == nullptr) return false;
    // Copied before the old text is released: `text` may be that text.
    data_->query = std::wstring(text);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void FsQuery::setCaseSensitive(unsigned int mode) {
    if (mode > kLastCaseMode) return;
    data_->caseMode = mode;
    data_->criteriaCaseSensitive = mode != kCaseInsensitive;
}

const std::vector<PathInfo>& FsQuery::getIncludedPaths() const {
    return data_->includedPaths;
}

const std::vector<PathInfo>& FsQuery::getExcludedPaths() const {
    return data_->excludedPaths;
}

const std::vector<FileSystemInfo>& FsQuery::getIncludedFileSystems() const {
    return data_->includedFileSystems;
}

const std::vector<FileSystemInfo>& FsQuery::getExcludedFileSystems() const {
    return data_->excludedFileSystems;
}

const wchar_t* FsQuery::getQuery() const {
    return data_->query ? data_->query->c_str() : nullptr;
}

bool FsQuery::getCaseSensitive() const {
    return data_->caseMode != kCaseInsensitive;
}

bool FsQuery::clearIncludePaths() {
    return clearList(data_->includedPaths);
}

bool FsQuery::clearExcludePaths() {
    return clearList(data_->excludedPaths);
}

bool FsQuery::clearIncludeFileSystems() {
    return clearList(data_->includedFileSystems);
}

bool FsQuery::clearExcludeFileSystems() {
    return clearList(data_->excludedFileSystems);
}

void FsQuery::setKinds(unsigned kinds) {
    data_->kinds = kinds & FS_KINDS_ALL;
}

unsigned FsQuery::getKinds() const {
    return data_->kinds;
}

void FsQuery::setDepth(FsDepthRange range) {
    data_->depth = range;
}

FsDepthRange FsQuery::getDepth() const {
    return data_->depth;
}

void FsQuery::setLinks(FsLinks links) {
    data_->links = links;
}

FsLinks FsQuery::getLinks() const {
    return data_->links;
}

void FsQuery::setOneFileSystem(bool one) {
    data_->oneFileSystem = one;
}

bool FsQuery::getOneFileSystem() const {
    return data_->oneFileSystem;
}

void FsQuery::setFacts(bool needed) {
    data_->facts = needed;
}

bool FsQuery::getFacts() const {
    return data_->facts;
}

void FsQuery::setCriteriaCaseSensitive(bool sensitive) {
    data_->criteriaCaseSensitive = sensitive;
}

bool FsQuery::getCriteriaCaseSensitive() const {
    return data_->criteriaCaseSensitive;
}

}  // namespace fscanner

#include "fscanner/filetype/file_type_cache.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <utility>

#include "fscanner/common/debug.h"

namespace fscanner {

void Element::setData(int id, const wchar_t* info, bool /*release*/) {
    if (info == nullptr || id < 0) {
        id_ = -1;
        info_.reset();
        return;
    }
    id_ = id;
    info_ = std::wstring(info);  // a copy first: `info` may be this element's own line
}

FileTypeCache::FileTypeCache(unsigned sizeLimit)
    : sizeLimit_(std::max(sizeLimit, kSmallestLimit)) {}

void FileTypeCache::insert(const Element& element) {
    append(element, {}, 0);
}

void FileTypeCache::insert(const Element& element, std::wstring_view path, const FileStamp& stamp) {
    const wchar_t* info = element.getFileTypeInfo();
    bool begins = info != nullptr && std::wstring_view(info).starts_with(path);
    append(element, stamp, begins ? path.size() : 0);
}

void FileTypeCache::append(const Element& element, const FileStamp& stamp, std::size_t pathLength) {
    makeRoom(element.getID());
    elements_.push_back({element, stamp, pathLength});
    auto last = std::prev(elements_.end());
    if (pathLength > 0) byPath_.emplace(last->path(), last);
    lastId_ = element.getID();
}

// Drops from the front until there is room, and goes on to the end of the batch that it has begun
// to drop. It stops at the batch that is being inserted.
void FileTypeCache::makeRoom(int currentId) {
    if (elements_.size() < sizeLimit_) return;
    int dropped = currentId;
    while (!elements_.empty()) {
        int front = elements_.front().element.getID();
        bool boundary = front != dropped;
        if (front == currentId || (boundary && elements_.size() < sizeLimit_)) return;
        extract(elements_.begin());
        dropped = front;
    }
}

Element FileTypeCache::find(const wchar_t* key, bool remove) {
    const std::size_t length = std::wcslen(key);
    auto begins = [&](const Entry& entry) {
        const wchar_t* info = entry.element.getFileTypeInfo();
        return info != nullptr && std::wcsncmp(info, key, length) == 0;
    };
    auto found = std::find_if(elements_.begin(), elements_.end(), begins);
    if (found == elements_.end()) return {};
    return remove ? extract(found) : found->element;
}

Element FileTypeCache::take(std::wstring_view path, const FileStamp& stamp) {
    for (;;) {
        auto found = byPath_.lower_bound(path);
        if (found == byPath_.end() || found->first != path) return {};
        const bool fits = found->second->stamp == stamp;
        Element element = extract(found->second);
        if (fits) return element;
    }
}

Element FileTypeCache::extract(Entries::iterator position) {
    if (position->pathLength > 0) {
        auto [first, last] = byPath_.equal_range(position->path());
        byPath_.erase(
            std::find_if(first, last, [&](const auto& item) { return item.second == position; }));
    }
    Element element = std::move(position->element);
    elements_.erase(position);
    return element;
}

void FileTypeCache::print() const {
    if (!debugInfo) return;
    for (const Entry& entry : elements_) {
        const wchar_t* info = entry.element.getFileTypeInfo();
        debug("FileTypeCache::print - %d: %ls\n", entry.element.getID(), info ? info : L"");
    }
}

}  // namespace fscanner

#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace fscanner {

/// One cached answer: a line "path: description", and the ID of the batch that produced
/// it. A batch is one description of a directory. An empty element (ID -1, null info)
/// means "not found".
class Element {
public:
    Element() = default;
    Element(int id, const wchar_t* info) { setData(id, info, false); }

    /// Stores a copy of `info`, or empties the element when `info` is null or `id` is
    /// negative. The old line is always released; `release` has no effect.
    void setData(int id, const wchar_t* info, bool release);
    int getID() const { return id_; }
    /// The line, owned by the element; null when it is empty.
    const wchar_t* getFileTypeInfo() const { return info_ ? info_->c_str() : nullptr; }

private:
    int id_ = -1;
    std::optional<std::wstring> info_;
};

/// Identifies a file and its state when it was described. A file that was replaced or
/// changed since has another stamp.
struct FileStamp {
    bool known = false;
    unsigned long long device = 0;
    unsigned long long inode = 0;
    unsigned long long size = 0;
    long long changedSeconds = 0;
    long changedNanoseconds = 0;
    bool operator==(const FileStamp&) const = default;
};

/// Answers in the order of their insertion. When the limit is reached, the oldest batches
/// are dropped as a whole.
///
/// Answers that were inserted with their path are indexed by it. One thread at a time.
class FileTypeCache {
public:
    /// `sizeLimit`: the number of answers; values below 4096 are raised to that.
    explicit FileTypeCache(unsigned sizeLimit = kSmallestLimit);

    /// Makes room and appends. The batch that is being inserted is never dropped, so
    /// one large directory may exceed the limit.
    void insert(const Element& element);
    /// The same for an answer that `take` can find under `path`. `path` must be the
    /// beginning of the element's line.
    void insert(const Element& element, std::wstring_view path, const FileStamp& stamp = {});

    /// A copy of the oldest element whose line begins with `key`; an empty element when
    /// there is none. With `remove` the element is taken out of the cache. The key "a:"
    /// also finds the line of a file called "a:b".
    Element find(const wchar_t* key, bool remove);
    /// Takes the oldest answer for exactly `path` with this stamp out of the cache. Older
    /// answers for the path with another stamp are dropped.
    Element take(std::wstring_view path, const FileStamp& stamp = {});

    /// Writes the elements to the debug log.
    void print() const;

    std::size_t size() const { return elements_.size(); }
    unsigned sizeLimit() const { return sizeLimit_; }
    /// The batch of the last insertion, -1 before the first.
    int lastID() const { return lastId_; }

private:
    struct Entry {
        Element element;
        FileStamp stamp;
        std::size_t pathLength = 0;  // length of the path at the line's start; 0: not indexed
        std::wstring_view path() const { return {element.getFileTypeInfo(), pathLength}; }
    };
    using Entries = std::list<Entry>;

    void makeRoom(int currentId);
    void append(const Element& element, const FileStamp& stamp, std::size_t pathLength);
    Element extract(Entries::iterator position);

    static constexpr unsigned kSmallestLimit = 4096;
    unsigned sizeLimit_;
    int lastId_ = -1;
    Entries elements_;
    // The keys are views into the elements' lines; a list never moves its elements. An
    // ordered map keeps answers for the same path in the order of insertion, and cannot
    // be slowed down by names whose hashes collide.
    std::multimap<std::wstring_view, Entries::iterator> byPath_;
};

}  // namespace fscanner

#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace fscanner {

/// One cached answer: the directory batch that produced it, and one line
/// "path: description". An empty element (ID -1, null info) means "not found".
class Element {
public:
    Element() = default;
    Element(int id, const wchar_t* info) { setData(id, info, false); }

    /// Stores a copy of `info`, or empties the element when `info` is null or `id`
    /// negative. The old line is always released, whatever `release` says.
    void setData(int id, const wchar_t* info, bool release);
    int getID() const { return id_; }
    /// The line, owned by the element; null when it is empty.
    const wchar_t* getFileTypeInfo() const { return info_ ? info_->c_str() : nullptr; }

private:
    int id_ = -1;
    std::optional<std::wstring> info_;
};

/// Which file an answer was given for, and in which state. A file that was replaced or
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

/// Answers in the order of their arrival, bounded by dropping whole oldest batches.
///
/// Answers stored with their path are found by it at once, exactly. One thread
/// at a time.
class FileTypeCache {
public:
    /// `sizeLimit` counts where it is more than 4096, which is the least.
    explicit FileTypeCache(unsigned sizeLimit = smallestLimit);

    /// Appends after making room. A batch that is being inserted is never dropped,
    /// so one large directory may exceed the limit.
    void insert(const Element& element);
    /// The same for an answer that `take` is to find under `path`.
    void insert(const Element& element, std::wstring_view path, const FileStamp& stamp = {});

    /// A copy of the oldest element whose line begins with `key`, which leaves the
    /// cache with `remove`; an empty element when there is none. Any beginning
    /// counts: the key "a:" also finds the line of a file called "a:b".
    Element find(const wchar_t* key, bool remove);
    /// Takes out the oldest answer stored under exactly `path` with this stamp. Answers
    /// of the path that are older and have another stamp are dropped.
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
        std::size_t pathLength = 0;  // of the line's beginning that is the path; 0: not indexed
        std::wstring_view path() const { return {element.getFileTypeInfo(), pathLength}; }
    };
    using Entries = std::list<Entry>;

    void makeRoom(int currentId);
    void append(const Element& element, const FileStamp& stamp, std::size_t pathLength);
    Element extract(Entries::iterator position);

    static constexpr unsigned smallestLimit = 4096;
    unsigned sizeLimit_;
    int lastId_ = -1;
    Entries elements_;
    // Keys are views into the elements' own lines, which a list never moves. Ordered,
    // so that answers of one path stand in the order of their insertion, and that
    // names chosen to collide cost nothing.
    std::multimap<std::wstring_view, Entries::iterator> byPath_;
};

}  // namespace fscanner

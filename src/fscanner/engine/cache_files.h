#pragma once

#include <string>

namespace fscanner {

// What the files of a cache beside its tables are called, and the smallest of them.

/// Suffixes of the mark, of the counter, of the unread directories, of the checksums and of the
/// undo journal.
extern const wchar_t* CacheUpdateSuffix;
extern const wchar_t* CacheCounterSuffix;
extern const wchar_t* CacheUnreadSuffix;
extern const wchar_t* CacheSumsSuffix;
extern const wchar_t* CacheUndoSuffix;

/// The name of the access mutex of a cache directory.
std::wstring accessMutexName(const std::wstring& directory);

/// The counter: the last ID that a directory was given, 4 bytes, little-endian. False when
/// the file cannot be read, or written whole.
bool readCounter(const std::wstring& path, unsigned& counter);
bool writeCounter(const std::wstring& path, unsigned counter);

/// The mark: a file that is there while a cache is changed, and after a change that did not
/// end well. Without a checker there is none, and all of this does nothing.
class CacheMark {
public:
    CacheMark() = default;
    CacheMark(std::wstring path, std::wstring directory, bool cacheChecker)
        : path_(std::move(path)), directory_(std::move(directory)), cacheChecker_(cacheChecker) {}

    bool place() const;
    /// It is on disk then.
    bool placeSynced() const;
    /// The same as `place` and its opposite, with a line in the log.
    void beginCacheUpdate() const;
    void endCacheUpdate() const;
    /// Whether it is there, or may be.
    bool insideCacheUpdate() const;

private:
    std::wstring path_;
    std::wstring directory_;
    bool cacheChecker_ = false;
};

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// `directory`, "/" unless it ends with one, `name` and `suffix`; released with
/// `free`, null if any is null.
wchar_t* getCacheFileName(const wchar_t* directory, const wchar_t* name, const wchar_t* suffix);

}  // namespace fscanner

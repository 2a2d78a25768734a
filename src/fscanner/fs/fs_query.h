#pragma once

#include <memory>
#include <vector>

#include "fscanner/discovery/filesystem_info.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/export.h"

namespace fscanner {

struct FsQueryData;

/// Describes a search. The host builds it and hands it to a provider by constant reference. It
/// may change and reuse it between executions. All texts are copied. One thread at a time; not
/// copyable. Only the constructor throws (`std::bad_alloc`).
class FSCANNER_EXPORT FsQuery {
public:
    FsQuery();
    FsQuery(const FsQuery&) = delete;
    FsQuery& operator=(const FsQuery&) = delete;

    /// Appends a path to search: `[media::][drive:]path`. The media is $local (default),
    /// $remote, $other or $all. `recursive` means the whole subtree, otherwise only the
    /// directory itself. Order and duplicates are kept. False for null, or without memory.
    virtual bool addIncludePath(const wchar_t* path, bool recursive);
    /// Appends a path that the search leaves out. Otherwise the same.
    virtual bool addExcludePath(const wchar_t* path, bool recursive);
    /// Restricts the search to file systems of this type and of other types that are added.
    /// False for null, or without memory.
    virtual bool addIncludeFileSystem(const wchar_t* name);
    /// Leaves file systems of this type out of the search. Otherwise the same.
    virtual bool addExcludeFileSystem(const wchar_t* name);
    /// Reserved; returns false and changes nothing. Use `setQuery`.
    virtual bool setSimpleQuery(const wchar_t* text, unsigned int flags);
    /// Stores the criteria text. It is compiled when the query runs; `fsCheckCriteria` tells
    /// earlier whether it compiles. False, and the old text stays, for null or without memory.
    virtual bool setQuery(const wchar_t* text);
    /// Sets the case mode. 0 and 2 (the default) are case-sensitive; 1 is not. Other values are
    /// ignored. The mode applies to the criteria and the excluded paths. Included paths are
    /// always case-sensitive.
    virtual void setCaseSensitive(unsigned int mode);

    /// The lists. The query owns them; references are valid until it is destroyed, and
    /// iterators until the list changes.
    virtual const std::vector<PathInfo>& getIncludedPaths() const;
    virtual const std::vector<PathInfo>& getExcludedPaths() const;
    virtual const std::vector<FileSystemInfo>& getIncludedFileSystems() const;
    virtual const std::vector<FileSystemInfo>& getExcludedFileSystems() const;
    /// The criteria text. The query owns it; it is valid until the next `setQuery`. Null if
    /// it was never set.
    virtual const wchar_t* getQuery() const;
    /// Whether the case mode is case-sensitive.
    virtual bool getCaseSensitive() const;

    /// Each empties one list and returns true.
    virtual bool clearIncludePaths();
    virtual bool clearExcludePaths();
    virtual bool clearIncludeFileSystems();
    virtual bool clearExcludeFileSystems();

    // Declared last: the order of the virtual functions is part of the binary interface.
    virtual ~FsQuery();

private:
    std::unique_ptr<FsQueryData> data_;
};

}  // namespace fscanner

#pragma once

#include <memory>
#include <vector>

#include "fscanner/discovery/filesystem_info.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/export.h"

namespace fscanner {

struct FsQueryData;

/// Describes a search. The host builds it, hands it to a provider by constant
/// reference, and may change and reuse it between executions. All texts are
/// copied. One thread at a time; not copyable. Nothing throws but, for want of
/// memory, the constructor.
class FSCANNER_EXPORT FsQuery {
public:
    FsQuery();
    FsQuery(const FsQuery&) = delete;
    FsQuery& operator=(const FsQuery&) = delete;

    /// Appends a path to search (to leave out): `[media::][drive:]path`, where
    /// media is $local (default), $remote, $other or $all. Recursive covers the
    /// whole subtree. Order is kept, duplicates too. False for null.
    virtual bool addIncludePath(const wchar_t* path, bool recursive);
    virtual bool addExcludePath(const wchar_t* path, bool recursive);
    /// Restricts the search to (leaves out) file systems of this type. False for null.
    virtual bool addIncludeFileSystem(const wchar_t* name);
    virtual bool addExcludeFileSystem(const wchar_t* name);
    /// Reserved; returns false and changes nothing. Use `setQuery`.
    virtual bool setSimpleQuery(const wchar_t* text, unsigned int flags);
    /// Stores the criteria text as it is; it is compiled when the query runs.
    /// False, and the old text stays, for null or when memory runs out.
    virtual bool setQuery(const wchar_t* text);
    /// 0 and 2 (the default): case-sensitive; 1: not. Other values are ignored. Concerns
    /// the criteria and the excluded paths; included ones are taken exactly.
    virtual void setCaseSensitive(unsigned int mode);

    /// Owned by the query, valid until the list changes.
    virtual const std::vector<PathInfo>& getIncludedPaths() const;
    virtual const std::vector<PathInfo>& getExcludedPaths() const;
    virtual const std::vector<FileSystemInfo>& getIncludedFileSystems() const;
    virtual const std::vector<FileSystemInfo>& getExcludedFileSystems() const;
    /// The criteria text, owned by the query; null when never set.
    virtual const wchar_t* getQuery() const;
    /// False if the mode is 1, else true.
    virtual bool getCaseSensitive() const;

    /// Empty one list each; return true.
    virtual bool clearIncludePaths();
    virtual bool clearExcludePaths();
    virtual bool clearIncludeFileSystems();
    virtual bool clearExcludeFileSystems();

    // Last in slot order, which is part of the binary interface.
    virtual ~FsQuery();

private:
    std::unique_ptr<FsQueryData> data_;
};

}  // namespace fscanner

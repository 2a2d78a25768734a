#pragma once

#include <limits>
#include <memory>
#include <vector>

#include "fscanner/discovery/filesystem_info.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/export.h"

namespace fscanner {

struct FsQueryData;

/// Kinds of directory entries. A query asks for a set of them.
enum FsEntryKind : unsigned {
    FS_KIND_FILE = 1,  ///< regular files
    FS_KIND_DIRECTORY = 2,
    FS_KIND_LINK = 4,  ///< symbolic links
    FS_KIND_PIPE = 8,
    FS_KIND_SOCKET = 16,
    FS_KIND_BLOCK_DEVICE = 32,
    FS_KIND_CHARACTER_DEVICE = 64,
    FS_KINDS_ALL = 127,
    FS_KINDS_BUT_DIRECTORIES = 125,
};

/// How deep below an included path an entry lies: its own entries have the depth 1. Both bounds
/// belong to the range.
struct FsDepthRange {
    unsigned least = 0;                                    ///< the smallest depth that is asked for
    unsigned most = std::numeric_limits<unsigned>::max();  ///< the greatest one
};

/// What a search does with symbolic links.
enum class FsLinks {
    leave,   ///< they are entries like others; none is followed
    follow,  ///< each counts as what it leads to, and directories are searched through links
};

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

    /// Sets the kinds of entries that the search finds: bits of `FsEntryKind`, of which others are
    /// ignored. The default is `FS_KINDS_BUT_DIRECTORIES`. The record of a directory has the bit
    /// `FS_ATTR_DIRECTORY`; an included path itself is no entry.
    void setKinds(unsigned kinds);
    unsigned getKinds() const;
    /// Sets the depths at which the search finds entries. Of included paths inside each other, the
    /// depth counts from the outermost recursive one. It enters no directory deeper than that,
    /// and builds no tree of a cache for a limited depth: where none is at hand, it scans.
    void setDepth(FsDepthRange range);
    FsDepthRange getDepth() const;
    /// The default is `FsLinks::leave`. A search that follows links always scans. A directory is
    /// not entered again from inside itself: see `FsSkipReason::cycle`. Neither is one on a file
    /// system that the query leaves out; its drive group may be any.
    void setLinks(FsLinks links);
    FsLinks getLinks() const;
    /// Whether the search stays on the file system of each included path: of a file system that is
    /// mounted below, only the mount point itself is found, and of one that a followed link leads
    /// to, the directory.
    void setOneFileSystem(bool one);
    bool getOneFileSystem() const;
    /// Whether records have to carry sizes, attributes and times; the default is true. Otherwise a
    /// scan examines no file for its record alone: what it does not know, the record's getters
    /// fetch. A directory's record has the bit `FS_ATTR_DIRECTORY` in any case.
    void setFacts(bool needed);
    bool getFacts() const;
    /// Sets the case mode of the criteria apart from that of the excluded paths, until the next
    /// `setCaseSensitive`, which sets both.
    void setCriteriaCaseSensitive(bool sensitive);
    bool getCriteriaCaseSensitive() const;

    // Declared last: the order of the virtual functions is part of the binary interface.
    virtual ~FsQuery();

private:
    std::unique_ptr<FsQueryData> data_;
};

}  // namespace fscanner

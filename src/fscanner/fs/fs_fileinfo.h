#pragma once

#include "fscanner/export.h"

struct stat;

namespace fscanner {

class FsSerializator;

/// Bits of `FsFileInfo::getAttr`.
enum FsFileAttribute : unsigned {
    FS_ATTR_DIRECTORY = 0x0001,
    FS_ATTR_OWNER_READ = 0x0002,
    FS_ATTR_OWNER_WRITE = 0x0004,
    FS_ATTR_OWNER_EXECUTE = 0x0008,
    FS_ATTR_GROUP_READ = 0x0010,
    FS_ATTR_GROUP_WRITE = 0x0020,
    FS_ATTR_GROUP_EXECUTE = 0x0040,
    FS_ATTR_OTHERS_READ = 0x0080,
    FS_ATTR_OTHERS_WRITE = 0x0100,
    FS_ATTR_OTHERS_EXECUTE = 0x0200,
    FS_ATTR_SYMBOLIC_LINK = 0x1000,
    FS_ATTR_REGULAR_FILE = 0x2000,
    FS_ATTR_CHARACTER_DEVICE = 0x4000,
};

/// One found file: directory path, name and attributes. Each attribute has a
/// "known" bit; one that was never set is fetched with `lstat` on first request.
///
/// Owns both texts. One thread at a time. Nothing throws: where memory runs out
/// a copy's text is null and its error flag is set.
class FSCANNER_EXPORT FsFileInfo {
public:
    FsFileInfo();
    /// Copies have their own texts, and know what the other knows of the file.
    FsFileInfo(const FsFileInfo& other);
    FsFileInfo(FsFileInfo&& other) noexcept;
    FsFileInfo& operator=(const FsFileInfo& other);
    FsFileInfo& operator=(FsFileInfo&& other) noexcept;
    virtual ~FsFileInfo();

    /// Frees both texts and zeroes everything.
    void clear();
    /// Forgets what is known of the file and keeps both texts: one record serves a
    /// whole scan.
    void forgetInfo();
    /// Notes that the file could not be examined.
    void setError();
    /// A copy released with delete[]; null for null.
    static wchar_t* duplicateString(const wchar_t* s);

    /// Store a copy (null allowed); what is known of the file stays.
    void setFilePath(const wchar_t* path);
    void setFileName(const wchar_t* name);
    void setFileAttr(unsigned attributes);
    void setFileSize(unsigned long long size);
    void setCreateTime(long seconds);
    void setLastAccessTime(long seconds);
    void setLastModifyTime(long seconds);

    /// The directory, which may end with "/" or not (`getPathName` joins the two), and the
    /// name, owned by the record; null when not set.
    const wchar_t* getPath() const { return path_.get(); }
    const wchar_t* getName() const { return name_.get(); }
    /// Each fetches what is not known yet; 0 when that fails. Times are seconds
    /// since the epoch; the "create time" is the time of the last status change.
    unsigned getAttr() const;
    unsigned long long getSize() const;
    long getCreateTime() const;
    long getLastAccessTime() const;
    long getLastModifyTime() const;
    unsigned getINode() const;
    unsigned getUserId() const;
    unsigned getGroupId() const;

    /// Fetches everything that is not known. False when the file cannot be
    /// examined (`hasError()` then); the next getter tries again.
    bool updateInfo() const;
    /// Takes everything that is not known from a system's answer. False, with
    /// the error flag set, when the size passes the limit (see below).
    bool updateFrom(const struct stat& info) const;
    /// Whether a fetch, or the copy of a text, has failed since the last `clear()`.
    bool hasError() const { return facts_.error != 0; }
    /// OR of the known bits; 0x3FF is everything.
    unsigned knownMask() const { return facts_.mask; }

    /// Compares this record's field (an `FsSortKey`) with the other's by a
    /// comparison operator code (0 "==", 1 ">=", 2 "<=", 3 ">", 4 "<", 5 "!=").
    /// For "==" and "!=" the other's text is a pattern. Null texts compare false;
    /// sizes are compared as stored. An unknown field gives false.
    bool compare(FsFileInfo& other, int field, unsigned op, bool caseSensitive);

    /// Save what is known, load it back. 0 on success, -1 after a shortfall. The
    /// size keeps its low 32 bits only, and so do the times, which are signed.
    int saveObject(FsSerializator& to) const;
    int loadObject(FsSerializator& from);

    /// Process-wide. By default a file of more than 2147483647 bytes cannot be
    /// examined (the error flag is set). With large-file support its size is known.
    static void setLargeFileSupport(bool on);
    static bool getLargeFileSupport();
    /// Process-wide. By default a directory whose path has 1024 characters or more is left
    /// out of every search, and the observer is told `FsSkipReason::tooLong`. With long-path
    /// support paths may have any length, beyond what the system takes in one call, too.
    static void setLongPathSupport(bool on);
    static bool getLongPathSupport();

private:
    /// An owned text. Its buffer is kept while the next text fits, because one
    /// record is filled once per match.
    class Text {
    public:
        Text() = default;
        FSCANNER_HIDDEN Text(const Text& other);
        FSCANNER_HIDDEN Text(Text&& other) noexcept;
        FSCANNER_HIDDEN Text& operator=(Text&& other) noexcept;
        FSCANNER_HIDDEN ~Text();

        const wchar_t* get() const { return data_; }
        /// False, with no text kept, when memory runs out.
        FSCANNER_HIDDEN bool assign(const wchar_t* s);
        /// Takes over a text that `new[]` made.
        FSCANNER_HIDDEN void adopt(wchar_t* s);

    private:
        wchar_t* data_ = nullptr;
        unsigned long room_ = 0;
    };

    /// What `lstat` tells, with the mask of what is known of it.
    struct Facts {
        unsigned attributes = 0;
        unsigned long long size = 0;
        unsigned device = 0;
        unsigned groupId = 0;
        unsigned userId = 0;
        unsigned inode = 0;
        long accessTime = 0;
        long createTime = 0;
        long modifyTime = 0;
        unsigned linkCount = 0;
        unsigned mask = 0;
        unsigned error = 0;
    };

    FSCANNER_HIDDEN void setText(Text& text, const wchar_t* s);
    FSCANNER_HIDDEN bool fetchFailed() const;

    Text path_;
    Text name_;
    mutable Facts facts_;
};

/// `dir` joined with `name` (a "/" between them unless `dir` is empty or ends
/// with one), released with delete[]. Null if either is null. An empty `dir`
/// gives the name alone, unlike `getFullPathName`.
FSCANNER_EXPORT wchar_t* getPathName(const wchar_t* dir, const wchar_t* name);

}  // namespace fscanner

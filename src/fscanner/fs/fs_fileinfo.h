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

/// One found file: directory path, name and attributes. Each attribute has a "known" bit. A
/// getter fetches an attribute that is not known with `lstat`, by the record's path.
///
/// Owns both texts. One thread at a time. Nothing throws: if a text cannot be copied for
/// lack of memory, it is null and the error flag is set.
class FSCANNER_EXPORT FsFileInfo {
public:
    FsFileInfo();
    /// A copy has its own texts, and the same known attributes.
    FsFileInfo(const FsFileInfo& other);
    FsFileInfo(FsFileInfo&& other) noexcept;
    FsFileInfo& operator=(const FsFileInfo& other);
    FsFileInfo& operator=(FsFileInfo&& other) noexcept;
    virtual ~FsFileInfo();

    /// Frees both texts and zeroes everything.
    void clear();
    /// Makes all attributes unknown and clears the error flag. Both texts stay, so that one
    /// record can be used for a whole scan.
    void forgetInfo();
    /// Sets the error flag: the file could not be examined.
    void setError();
    /// A copy that the caller releases with delete[]. Null for null, or without memory.
    static wchar_t* duplicateString(const wchar_t* s);

    /// Store a copy of the text; null is allowed. The known attributes stay.
    void setFilePath(const wchar_t* path);
    void setFileName(const wchar_t* name);
    /// Set one attribute and make it known. Units are those of the getters.
    void setFileAttr(unsigned attributes);
    void setFileSize(unsigned long long size);
    void setCreateTime(long seconds);
    void setLastAccessTime(long seconds);
    void setLastModifyTime(long seconds);

    /// The directory and the name. The record owns them; they are valid until it changes.
    /// Null if not set. The directory may end with "/" or not: `getPathName` joins both.
    const wchar_t* getPath() const { return path_.get(); }
    const wchar_t* getName() const { return name_.get(); }
    /// Each getter fetches its attribute if it is not known, and returns 0 if that fails.
    /// Bits of `FsFileAttribute`.
    unsigned getAttr() const;
    /// Bytes.
    unsigned long long getSize() const;
    /// Times are seconds since the epoch. The "create time" is the time of the last status
    /// change (`st_ctime`).
    long getCreateTime() const;
    long getLastAccessTime() const;
    long getLastModifyTime() const;
    /// The low 32 bits of the numbers.
    unsigned getINode() const;
    unsigned getUserId() const;
    unsigned getGroupId() const;
    /// How many names (hard links) the file has.
    unsigned getLinkCount() const;

    /// Fetches all unknown attributes. False if the path or the name is not set, or if the
    /// file cannot be examined; the latter sets the error flag. The next getter tries again.
    bool updateInfo() const;
    /// Takes all unknown attributes from `info`. False, with the error flag set, if the size
    /// exceeds the limit (see `setLargeFileSupport`).
    bool updateFrom(const struct stat& info) const;
    /// The error flag: whether a fetch, or the copy of a text, has failed since the last
    /// `clear()` or `forgetInfo()`.
    bool hasError() const { return facts_.error != 0; }
    /// The known bits of all attributes; 0x3FF means that all are known.
    unsigned knownMask() const { return facts_.mask; }

    /// Compares a field of this record with the same field of `other`. `field` is an
    /// `FsSortKey`; `op` is the code of an operator (0 "==", 1 ">=", 2 "<=", 3 ">", 4 "<",
    /// 5 "!="). For "==" and "!=" the text of `other` is a pattern. An unknown size counts
    /// as 0. False for a null text or an unknown field.
    bool compare(FsFileInfo& other, int field, unsigned op, bool caseSensitive);

    /// Save both texts and the known attributes, and load them back. 0 on success, -1 if the
    /// serializer has failed. The size keeps its low 32 bits only. So do the times, which
    /// load as signed numbers.
    int saveObject(FsSerializator& to) const;
    int loadObject(FsSerializator& from);

    /// Process-wide, any thread. By default a file of more than 2147483647 bytes cannot be
    /// examined: the error flag is set. With large-file support its size is known.
    static void setLargeFileSupport(bool on);
    static bool getLargeFileSupport();
    /// Process-wide, any thread. By default a directory whose path has 1024 characters or more
    /// is left out of every search, and the observer is told `FsSkipReason::tooLong`. With
    /// long-path support paths may have any length, even one that the system accepts in no
    /// single call.
    static void setLongPathSupport(bool on);
    static bool getLongPathSupport();

private:
    /// An owned text. The buffer is reused while the next text fits, because a scan fills
    /// one record again for every match.
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
        /// Takes ownership of a text made with `new[]`.
        FSCANNER_HIDDEN void adopt(wchar_t* s);

    private:
        wchar_t* data_ = nullptr;
        unsigned long room_ = 0;
    };

    /// The attributes, the mask of those that are known, and the error flag.
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

/// Joins `dir` and `name`, with a "/" between them unless `dir` is empty or ends with "/". The
/// caller releases the result with delete[]. Null if either is null, or without memory. An
/// empty `dir` gives the name alone, unlike with `getFullPathName`.
FSCANNER_EXPORT wchar_t* getPathName(const wchar_t* dir, const wchar_t* name);

}  // namespace fscanner

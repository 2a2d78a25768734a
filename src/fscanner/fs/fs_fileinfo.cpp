#include "fscanner/fs/fs_fileinfo.h"

#include <sys/stat.h>

#include <atomic>
#include <climits>
#include <cwchar>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/fs/fs_serializator.h"
#include "fscanner/platform/directory.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

namespace {

enum Known : unsigned {
    KNOWN_ATTRIBUTES = 0x001,
    KNOWN_SIZE = 0x002,
    KNOWN_DEVICE = 0x004,
    KNOWN_GROUP = 0x008,
    KNOWN_USER = 0x010,
    KNOWN_INODE = 0x020,
    KNOWN_ACCESS_TIME = 0x040,
    KNOWN_CREATE_TIME = 0x080,
    KNOWN_MODIFY_TIME = 0x100,
    KNOWN_LINKS = 0x200,
    KNOWN_ALL = 0x3FF,
};

// Fields of `compare`.
enum CompareField : int { BY_PATH = 1, BY_NAME = 2, BY_PATH_NAME = 3, BY_SIZE = 4 };

std::atomic<bool> largeFiles{false};

// Does not compare for equality: a loaded mask may have other bits set, too.
bool complete(unsigned mask) {
    return (mask & KNOWN_ALL) == KNOWN_ALL;
}

unsigned attributesOf(mode_t mode) {
    struct Bit {
        mode_t permission;
        unsigned attribute;
    };
    static constexpr Bit bits[] = {
        {S_IRUSR, FS_ATTR_OWNER_READ},    {S_IWUSR, FS_ATTR_OWNER_WRITE},
        {S_IXUSR, FS_ATTR_OWNER_EXECUTE}, {S_IRGRP, FS_ATTR_GROUP_READ},
        {S_IWGRP, FS_ATTR_GROUP_WRITE},   {S_IXGRP, FS_ATTR_GROUP_EXECUTE},
        {S_IROTH, FS_ATTR_OTHERS_READ},   {S_IWOTH, FS_ATTR_OTHERS_WRITE},
        {S_IXOTH, FS_ATTR_OTHERS_EXECUTE}};
    unsigned attributes = 0;
    if (S_ISCHR(mode)) attributes = FS_ATTR_CHARACTER_DEVICE;
    if (S_ISREG(mode)) attributes = FS_ATTR_REGULAR_FILE;
    if (S_ISLNK(mode)) attributes = FS_ATTR_SYMBOLIC_LINK;
    if (S_ISDIR(mode)) attributes = FS_ATTR_DIRECTORY;
    for (const Bit& bit : bits) {
        if ((mode & bit.permission) != 0) attributes |= bit.attribute;
    }
    return attributes;
}

bool multibytePath(const wchar_t* dir, const wchar_t* name, std::string& out) {
    try {
        appendMultibyte(out, dir);
        if (needsSeparator(std::wstring_view(dir))) out += '/';
        appendMultibyte(out, name);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

FsFileInfo::Text::Text(const Text& other) {
    assign(other.data_);
}

FsFileInfo::Text::Text(Text&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), room_(std::exchange(other.room_, 0)) {}

FsFileInfo::Text& FsFileInfo::Text::operator=(Text&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(room_, other.room_);
    return *this;
}

FsFileInfo::Text::~Text() {
    delete[] data_;
}

bool FsFileInfo::Text::assign(const wchar_t* s) {
    if (s == nullptr) {
        adopt(nullptr);
        return true;
    }
    const std::size_t needed = std::wcslen(s) + 1;
    if (needed <= room_) {
        std::wmemmove(data_, s, needed);  // `s` may point into the old text
        return true;
    }
    wchar_t* copy = new (std::nothrow) wchar_t[needed];
    if (copy != nullptr) std::wmemcpy(copy, s, needed);
    delete[] std::exchange(data_, copy);
    room_ = copy != nullptr ? needed : 0;
    return copy != nullptr;
}

void FsFileInfo::Text::adopt(wchar_t* s) {
    delete[] std::exchange(data_, s);
    room_ = s != nullptr ? std::wcslen(s) + 1 : 0;
}

FsFileInfo::FsFileInfo() = default;

FsFileInfo::FsFileInfo(const FsFileInfo& other) : facts_(other.facts_) {
    setText(path_, other.path_.get());
    setText(name_, other.name_.get());
}

FsFileInfo::FsFileInfo(FsFileInfo&& other) noexcept
    : path_(std::move(other.path_)),
      name_(std::move(other.name_)),
      facts_(std::exchange(other.facts_, {})) {}

FsFileInfo& FsFileInfo::operator=(const FsFileInfo& other) {
    if (this == &other) return *this;
    facts_ = other.facts_;
    setText(path_, other.path_.get());
    setText(name_, other.name_.get());
    return *this;
}

FsFileInfo& FsFileInfo::operator=(FsFileInfo&& other) noexcept {
    path_ = std::move(other.path_);
    name_ = std::move(other.name_);
    facts_ = std::exchange(other.facts_, {});
    return *this;
}

FsFileInfo::~FsFileInfo() = default;

void FsFileInfo::forgetInfo() {
    facts_ = Facts();
}

void FsFileInfo::setError() {
    facts_.error = 1;
}

void FsFileInfo::clear() {
    *this = FsFileInfo();
}

wchar_t* FsFileInfo::duplicateString(const wchar_t* s) {
    if (s == nullptr) return nullptr;
    const std::size_t room = std::wcslen(s) + 1;
    wchar_t* copy = new (std::nothrow) wchar_t[room];
    return copy != nullptr ? std::wmemcpy(copy, s, room) : nullptr;
}

void FsFileInfo::setText(Text& text, const wchar_t* s) {
    if (!text.assign(s)) facts_.error = 1;
}

void FsFileInfo::setFilePath(const wchar_t* path) {
    setText(path_, path);
}

void FsFileInfo::setFileName(const wchar_t* name) {
    setText(name_, name);
}

void FsFileInfo::setFileAttr(unsigned attributes) {
    facts_.attributes = attributes;
    facts_.mask |= KNOWN_ATTRIBUTES;
}

void FsFileInfo::setFileSize(unsigned long long size) {
    facts_.size = size;
    facts_.mask |= KNOWN_SIZE;
}

void FsFileInfo::setCreateTime(long seconds) {
    facts_.createTime = seconds;
    facts_.mask |= KNOWN_CREATE_TIME;
}

void FsFileInfo::setLastAccessTime(long seconds) {
    facts_.accessTime = seconds;
    facts_.mask |= KNOWN_ACCESS_TIME;
}

void FsFileInfo::setLastModifyTime(long seconds) {
    facts_.modifyTime = seconds;
    facts_.mask |= KNOWN_MODIFY_TIME;
}

unsigned FsFileInfo::getAttr() const {
    if ((facts_.mask & KNOWN_ATTRIBUTES) == 0) updateInfo();
    return facts_.attributes;
}

unsigned long long FsFileInfo::getSize() const {
    if ((facts_.mask & KNOWN_SIZE) == 0) updateInfo();
    return facts_.size;
}

long FsFileInfo::getCreateTime() const {
    if ((facts_.mask & KNOWN_CREATE_TIME) == 0) updateInfo();
    return facts_.createTime;
}

long FsFileInfo::getLastAccessTime() const {
    if ((facts_.mask & KNOWN_ACCESS_TIME) == 0) updateInfo();
    return facts_.accessTime;
}

long FsFileInfo::getLastModifyTime() const {
    if ((facts_.mask & KNOWN_MODIFY_TIME) == 0) updateInfo();
    return facts_.modifyTime;
}

unsigned FsFileInfo::getINode() const {
    if ((facts_.mask & KNOWN_INODE) == 0) updateInfo();
    return facts_.inode;
}

unsigned FsFileInfo::getUserId() const {
    if ((facts_.mask & KNOWN_USER) == 0) updateInfo();
    return facts_.userId;
}

unsigned FsFileInfo::getGroupId() const {
    if ((facts_.mask & KNOWN_GROUP) == 0) updateInfo();
    return facts_.groupId;
}

unsigned FsFileInfo::getLinkCount() const {
    if ((facts_.mask & KNOWN_LINKS) == 0) updateInfo();
    return facts_.linkCount;
}

bool FsFileInfo::updateInfo() const {
    if (complete(facts_.mask)) return true;
    if (getPath() == nullptr || getName() == nullptr) return false;
    std::string path;
    struct stat info;
    if (!multibytePath(getPath(), getName(), path) || examineFile(path, info) != 0) {
        return fetchFailed();
    }
    return updateFrom(info);
}

// Leaves the mask as it is, so that the next getter tries again.
bool FsFileInfo::fetchFailed() const {
    facts_.error = 1;
    if (!debugInfo) return false;
    const std::unique_ptr<wchar_t[]> path(getPathName(getPath(), getName()));
    debug("FsFileInfo::updateInfo - lstat(...) failed on '%ls' path\n", path ? path.get() : L"");
    return false;
}

// Without large-file support sizes are signed 32-bit numbers. A larger size counts as a failed
// call, like the EOVERFLOW of a 32-bit `lstat`. Device, inode and link count keep their low
// 32 bits.
bool FsFileInfo::updateFrom(const struct stat& info) const {
    if (complete(facts_.mask)) return true;
    if (!getLargeFileSupport() && info.st_size > INT_MAX) return fetchFailed();
    const auto take = [this](unsigned bit, auto& field, auto value) {
        using Field = std::remove_reference_t<decltype(field)>;
        if ((facts_.mask & bit) == 0) field = static_cast<Field>(value);
    };
    take(KNOWN_ATTRIBUTES, facts_.attributes, attributesOf(info.st_mode));
    take(KNOWN_SIZE, facts_.size, info.st_size);
    take(KNOWN_DEVICE, facts_.device, info.st_dev);
    take(KNOWN_GROUP, facts_.groupId, info.st_gid);
    take(KNOWN_USER, facts_.userId, info.st_uid);
    take(KNOWN_INODE, facts_.inode, info.st_ino);
    take(KNOWN_ACCESS_TIME, facts_.accessTime, info.st_atime);
    take(KNOWN_CREATE_TIME, facts_.createTime, info.st_ctime);
    take(KNOWN_MODIFY_TIME, facts_.modifyTime, info.st_mtime);
    take(KNOWN_LINKS, facts_.linkCount, info.st_nlink);
    facts_.mask |= KNOWN_ALL;
    return true;
}

// Never asks the system: an unknown size compares as 0. So a sort calls no `lstat`, and its
// order does not change while it runs.
bool FsFileInfo::compare(FsFileInfo& other, int field, unsigned op, bool caseSensitive) {
    const auto texts = [&](const wchar_t* mine, const wchar_t* pattern) {
        return mine != nullptr && pattern != nullptr &&
               checkSimpleExpression(mine, op, pattern, caseSensitive);
    };
    switch (field) {
        case BY_PATH:
            return texts(getPath(), other.getPath());
        case BY_NAME:
            return texts(getName(), other.getName());
        case BY_PATH_NAME: {
            const std::unique_ptr<wchar_t[]> mine(getPathName(getPath(), getName()));
            const std::unique_ptr<wchar_t[]> pattern(getPathName(other.getPath(), other.getName()));
            return texts(mine.get(), pattern.get());
        }
        case BY_SIZE:
            return checkSimpleExpression(facts_.size, op, other.facts_.size);
        default:
            return false;
    }
}

// Writes path, name, mask, and then one number for each known bit from the lowest up. Sizes
// and times keep their low 32 bits only. An error of the serializer is sticky, so it is
// enough to check it at the end.
int FsFileInfo::saveObject(FsSerializator& to) const {
    to.saveString(getPath());
    to.saveString(getName());
    to.saveUnsigned32(facts_.mask);
    const auto save = [&](unsigned bit, auto value) {
        if ((facts_.mask & bit) != 0) to.saveUnsigned32(static_cast<unsigned>(value));
    };
    save(KNOWN_ATTRIBUTES, facts_.attributes);
    save(KNOWN_SIZE, facts_.size);
    save(KNOWN_DEVICE, facts_.device);
    save(KNOWN_GROUP, facts_.groupId);
    save(KNOWN_USER, facts_.userId);
    save(KNOWN_INODE, facts_.inode);
    save(KNOWN_ACCESS_TIME, facts_.accessTime);
    save(KNOWN_CREATE_TIME, facts_.createTime);
    save(KNOWN_MODIFY_TIME, facts_.modifyTime);
    save(KNOWN_LINKS, facts_.linkCount);
    return to.getLastError();
}

int FsFileInfo::loadObject(FsSerializator& from) {
    clear();
    path_.adopt(from.loadString());
    name_.adopt(from.loadString());
    facts_.mask = from.loadUnsigned32();
    const auto load = [&](unsigned bit, auto& field) {
        using Field = std::remove_reference_t<decltype(field)>;
        if ((facts_.mask & bit) != 0) field = static_cast<Field>(from.loadUnsigned32());
    };
    const auto loadTime = [&](unsigned bit, long& field) {
        if ((facts_.mask & bit) != 0) field = static_cast<int>(from.loadUnsigned32());
    };
    load(KNOWN_ATTRIBUTES, facts_.attributes);
    load(KNOWN_SIZE, facts_.size);
    load(KNOWN_DEVICE, facts_.device);
    load(KNOWN_GROUP, facts_.groupId);
    load(KNOWN_USER, facts_.userId);
    load(KNOWN_INODE, facts_.inode);
    loadTime(KNOWN_ACCESS_TIME, facts_.accessTime);
    loadTime(KNOWN_CREATE_TIME, facts_.createTime);
    loadTime(KNOWN_MODIFY_TIME, facts_.modifyTime);
    load(KNOWN_LINKS, facts_.linkCount);
    return from.getLastError();
}

void FsFileInfo::setLargeFileSupport(bool on) {
    largeFiles.store(on, std::memory_order_relaxed);
}

bool FsFileInfo::getLargeFileSupport() {
    return largeFiles.load(std::memory_order_relaxed);
}

void FsFileInfo::setLongPathSupport(bool on) {
    setLongPaths(on);
}

bool FsFileInfo::getLongPathSupport() {
    return hasLongPaths();
}

wchar_t* getPathName(const wchar_t* dir, const wchar_t* name) {
    if (dir == nullptr || name == nullptr) return nullptr;
    const std::size_t dirLength = std::wcslen(dir);
    const std::size_t nameLength = std::wcslen(name);
    wchar_t* joined = new (std::nothrow) wchar_t[dirLength + nameLength + 2];
    if (joined == nullptr) return nullptr;
    wchar_t* end = std::wmemcpy(joined, dir, dirLength) + dirLength;
    if (needsSeparator(std::wstring_view(dir, dirLength))) *end++ = L'/';
    std::wmemcpy(end, name, nameLength + 1);
    return joined;
}

}  // namespace fscanner

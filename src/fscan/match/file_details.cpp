#include "fscan/match/file_details.h"

#include <sys/stat.h>

#include "fscan/text/paths.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

std::string whenExamined(const FileDetails& file, const std::string& text) {
    return file.examined ? text : "";
}

template <auto Member>
std::string numberOf(const Match&, const FileDetails& file) {
    return whenExamined(file, std::to_string(file.*Member));
}

template <auto Member>
std::string timeOf(const Match&, const FileDetails& file) {
    return whenExamined(file, utcText(file.*Member));
}

constexpr DetailField fields[] = {
    {"path", [](const Match& m, const FileDetails&) { return std::string(m.path); }, true},
    {"name", [](const Match& m, const FileDetails&) { return std::string(m.name()); }, true},
    {"directory", [](const Match& m, const FileDetails&) { return std::string(m.directory()); },
     true},
    {"size", [](const Match&, const FileDetails& d) { return std::to_string(d.size); }, false},
    {"mode", [](const Match&, const FileDetails& d) { return attributeText(d.attributes); }, false},
    {"kind", [](const Match&, const FileDetails& d) { return std::string(kindText(d.attributes)); },
     false},
    {"modified", timeOf<&FileDetails::modified>, false},
    {"accessed", timeOf<&FileDetails::accessed>, false},
    {"changed", timeOf<&FileDetails::changed>, false},
    {"user", numberOf<&FileDetails::user>, false},
    {"group", numberOf<&FileDetails::group>, false},
    {"inode", numberOf<&FileDetails::inode>, false},
    {"device", numberOf<&FileDetails::device>, false},
    {"links", numberOf<&FileDetails::links>, false},
    {"type", [](const Match& m, const FileDetails& d) { return typeText(m, d); }, true},
};

}  // namespace

FileDetails FileDetails::of(const struct stat& info) {
    fscanner::FsFileInfo record;
    record.updateFrom(info);
    return {true,
            static_cast<unsigned long long>(info.st_size),
            record.getAttr(),
            info.st_mtime,
            info.st_atime,
            info.st_ctime,
            info.st_uid,
            info.st_gid,
            info.st_ino,
            info.st_dev,
            info.st_nlink};
}

FileDetails FileDetails::of(const FileFacts& facts) {
    FileDetails details;
    details.size = facts.size;
    details.attributes = facts.attributes;
    return details;
}

FileDetails FileDetails::of(const fscanner::FsFileInfo& record) {
    constexpr unsigned attributes = 1, size = 2, all = 0x3FF;  // bits of the mask
    const unsigned mask = record.knownMask();
    FileDetails details;
    details.examined = (mask & all) == all;
    if ((mask & attributes) != 0) details.attributes = record.getAttr();
    if ((mask & size) != 0) details.size = record.getSize();
    if (!details.examined) return details;
    details.modified = record.getLastModifyTime();
    details.accessed = record.getLastAccessTime();
    details.changed = record.getCreateTime();
    details.user = record.getUserId();
    details.group = record.getGroupId();
    return details;
}

std::string typeText(const Match& match, const FileDetails& details) {
    static fscanner::FsFileTypes types;  // of one thread, which prints
    const std::wstring path = joinedPath(details.directory, toWide(std::string(match.name())));
    std::wstring description;
    return types.describe(path.c_str(), description) ? toBytes(description) : "";
}

std::span<const DetailField> detailFields() {
    return fields;
}

}  // namespace fscan

#include "fscan/match/match.h"

#include <sys/stat.h>

#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

template <auto Member>
FieldValue numberOf(const Match&, const FileDetails& file) {
    if (!file.examined) return {};
    return static_cast<unsigned long long>(file.*Member);
}

template <auto Member>
FieldValue timeOf(const Match&, const FileDetails& file) {
    if (!file.examined) return {};
    return utcText(file.*Member);
}

FieldValue kindOf(const Match&, const FileDetails& file) {
    return std::string(kindText(file.attributes));
}

FieldValue typeOf(const Match& match, const FileDetails& file) {
    std::string type = typeText(match, file);
    if (type.empty()) return {};
    return type;
}

constexpr auto kText = DetailField::text, kJson = DetailField::json, kBoth = DetailField::both;

constexpr DetailField kFields[] = {
    {"path", kBoth, true, [](auto& match, auto&) -> FieldValue { return std::string(match.path); }},
    {"name", kBoth, true,
     [](auto& match, auto&) -> FieldValue { return std::string(match.name()); }},
    {"directory", kBoth, true,
     [](auto& match, auto&) -> FieldValue { return std::string(match.directory()); }},
    {"exists", kJson, false,
     [](auto&, auto& file) { return file.examined ? FieldValue(true) : FieldValue(); }},
    {"kind", kJson, false, kindOf},
    {"size", kBoth, false, [](auto&, auto& file) -> FieldValue { return file.size; }},
    {"mode", kText, false,
     [](auto&, auto& file) -> FieldValue { return attributeText(file.attributes); }},
    {"attributes", kJson, false,
     [](auto&, auto& file) -> FieldValue { return AttributeBits{file.attributes}; }},
    {"kind", kText, false, kindOf},
    {"modified", kBoth, false, timeOf<&FileDetails::modified>},
    {"accessed", kBoth, false, timeOf<&FileDetails::accessed>},
    {"changed", kBoth, false, timeOf<&FileDetails::changed>},
    {"user", kBoth, false, numberOf<&FileDetails::user>},
    {"group", kBoth, false, numberOf<&FileDetails::group>},
    {"inode", kBoth, false, numberOf<&FileDetails::inode>},
    {"device", kBoth, false, numberOf<&FileDetails::device>},
    {"links", kBoth, false, numberOf<&FileDetails::links>},
    {"type", kBoth, true, typeOf},
};

}  // namespace

FileDetails FileDetails::of(const struct stat& info) {
    fscanner::FsFileInfo record;
    record.updateFrom(info);
    return {true,
            static_cast<unsigned long long>(info.st_size),
            record.getAttr(),
            info.st_mode & 07777,
            info.st_mtime,
            info.st_atime,
            info.st_ctime,
            info.st_uid,
            info.st_gid,
            info.st_ino,
            info.st_dev,
            info.st_nlink,
            info.st_mtim.tv_nsec,
            info.st_mode & S_IFMT,
            static_cast<unsigned long long>(info.st_blocks) * 512};
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
    details.links = record.getLinkCount();
    return details;
}

std::string typeText(const Match& match, const FileDetails& details) {
    static fscanner::FsFileTypes types;  // only the main thread prints
    const std::wstring path = joinedPath(details.directory, toWide(std::string(match.name())));
    std::wstring description;
    return types.describe(path.c_str(), description) ? toBytes(description) : "";
}

std::span<const DetailField> detailFields() {
    return kFields;
}

std::string textOf(const FieldValue& value) {
    if (const auto* words = std::get_if<std::string>(&value)) return *words;
    if (const auto* number = std::get_if<unsigned long long>(&value))
        return std::to_string(*number);
    return {};
}

}  // namespace fscan

#include "fscanner/store/index_list.h"

#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

OpenResult readIndexList(const wchar_t* path, std::vector<IndexListEntry>& entries) {
    const auto file = SysFactory::createMmFile(path);
    if (!file->open())
        return presenceOf(path) == Presence::absent ? OpenResult::ok : OpenResult::failed;
    const std::span<const std::byte> content = file->content();
    ByteRange in(content.data(), content.data() + content.size());
    while (!in.empty()) {
        std::uint32_t tag = 0;
        IndexListEntry entry;
        if (!in.takeInteger(tag) || !takeName(in, entry.indexName) ||
            !takeName(in, entry.fieldName)) {
            return OpenResult::damaged;
        }
        if (tag == HASH_INDEX_TAG) entries.push_back(std::move(entry));
    }
    return OpenResult::ok;
}

bool writeIndexList(const wchar_t* path, const std::vector<IndexListEntry>& entries) {
    std::vector<std::byte> bytes;
    for (const IndexListEntry& entry : entries) {
        appendInteger(bytes, HASH_INDEX_TAG);
        appendName(bytes, entry.indexName);
        appendName(bytes, entry.fieldName);
    }
    const auto file = SysFactory::createMmFile(path);
    if (!file->create()) return false;
    const auto length = static_cast<unsigned>(bytes.size());
    if (length != 0 && file->write(bytes.data(), length) != length) return false;
    return file->close();
}

}  // namespace fscanner

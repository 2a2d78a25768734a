#include "fscanner/store/offset_file.h"

#include <utility>

namespace fscanner {

std::unique_ptr<OffsetFile> OffsetFile::create(const wchar_t* path, SumsFile* sums) {
    SummedFile file;
    if (!file.create(path, sums)) return nullptr;
    return std::unique_ptr<OffsetFile>(new OffsetFile(std::move(file)));
}

OpenResult OffsetFile::open(const wchar_t* path, SumsFile* sums,
                            std::unique_ptr<OffsetFile>& file) {
    SummedFile opened;
    if (const OpenResult result = opened.open(path, sums); result != OpenResult::ok) return result;
    if (opened->logicalSize() % ENTRY != 0) return OpenResult::damaged;
    file.reset(new OffsetFile(std::move(opened)));
    return OpenResult::ok;
}

unsigned OffsetFile::nextLive(unsigned from) const {
    const unsigned end = count();
    while (from < end && at(from) == REMOVED) ++from;
    return from < end ? from : end;
}

bool OffsetFile::append(unsigned offset) {
    std::byte entry[ENTRY];
    storeInteger<std::uint32_t>(entry, offset);
    return file_->seek(0, SEEK_FROM_END) && file_->write(entry, ENTRY) == ENTRY;
}

bool OffsetFile::markRemoved(unsigned id) {
    std::byte* entry = file_->change(ENTRY * id, ENTRY);
    if (!entry) return false;
    storeInteger<std::uint32_t>(entry, REMOVED);
    return true;
}

}  // namespace fscanner

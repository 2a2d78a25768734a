#include "fscanner/store/data_file.h"

#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/store/bytes.h"
#include "fscanner/store/record_encoding.h"

namespace fscanner {

namespace {

constexpr unsigned kCountSize = 4;
constexpr unsigned kFixedHeader = 12;     // the two counts and the number of fields
constexpr unsigned kFixedDescriptor = 8;  // type code and name length

std::vector<std::byte> encodeHeader(const Fields& schema) {
    std::vector<std::byte> header(2 * kCountSize);
    appendInteger(header, schema.count());
    for (unsigned i = 0; i < schema.count(); ++i) {
        appendInteger(header, schema.at(i)->type());
        appendName(header, schema.at(i)->name());
    }
    return header;
}

/// Reads the header into `schema`. False when `encodeHeader` cannot have written it.
bool decodeHeader(ByteRange& in, Fields& schema) {
    std::uint32_t count = 0;
    if (!in.take(2 * kCountSize) || !in.takeInteger(count)) return false;
    if (count > RecordLayout::kMaxFields) return false;
    std::wstring name;
    for (; count > 0; --count) {
        std::uint32_t type = 0;
        if (!in.takeInteger(type) || !takeName(in, name)) return false;
        if (!schema.add(name.c_str(), type)) return false;
    }
    return true;
}

}  // namespace

unsigned DataFile::headerSize(const Fields& schema) {
    unsigned size = kFixedHeader;
    for (unsigned i = 0; i < schema.count(); ++i) {
        size += kFixedDescriptor + 4 * static_cast<unsigned>(std::wcslen(schema.at(i)->name()));
    }
    return size;
}

std::unique_ptr<DataFile> DataFile::create(const wchar_t* path, const Fields& schema,
                                           SumsFile* sums) {
    SummedFile file;
    const std::vector<std::byte> header = encodeHeader(schema);
    const auto length = static_cast<unsigned>(header.size());
    if (!file.create(path, sums) || file->write(header.data(), length) != length) return nullptr;
    return std::unique_ptr<DataFile>(new DataFile(std::move(file), length));
}

OpenResult DataFile::open(const wchar_t* path, Fields& schema, SumsFile* sums,
                          std::unique_ptr<DataFile>& file) {
    SummedFile opened;
    if (const OpenResult result = opened.open(path, sums); result != OpenResult::ok) return result;
    const std::span<const std::byte> content = opened->content();
    ByteRange in(content.data(), content.data() + content.size());
    Fields read;
    if (!decodeHeader(in, read)) return OpenResult::damaged;
    const unsigned length = headerSize(read);
    if (!opened.holds(0, length)) return OpenResult::damaged;
    schema = std::move(read);
    file.reset(new DataFile(std::move(opened), length));
    return OpenResult::ok;
}

unsigned DataFile::count(RecordCount which) const {
    return loadInteger<std::uint32_t>(file_->content().data() + which * kCountSize);
}

bool DataFile::setCount(RecordCount which, unsigned value) {
    std::byte* count = file_->change(which * kCountSize, kCountSize);
    if (!count) return false;
    storeInteger<std::uint32_t>(count, value);
    return true;
}

bool DataFile::append(std::span<const std::byte> record) {
    return write(end(), record);
}

bool DataFile::write(unsigned offset, std::span<const std::byte> bytes) {
    const auto length = static_cast<unsigned>(bytes.size());
    return file_->seek(offset, SEEK_FROM_START) && file_->write(bytes.data(), length) == length;
}

// ---- Offsets ----------------------------------------------------------------

std::unique_ptr<OffsetFile> OffsetFile::create(const wchar_t* path, SumsFile* sums) {
    SummedFile file;
    if (!file.create(path, sums)) return nullptr;
    return std::unique_ptr<OffsetFile>(new OffsetFile(std::move(file)));
}

OpenResult OffsetFile::open(const wchar_t* path, SumsFile* sums,
                            std::unique_ptr<OffsetFile>& file) {
    SummedFile opened;
    if (const OpenResult result = opened.open(path, sums); result != OpenResult::ok) return result;
    if (opened->logicalSize() % kEntry != 0) return OpenResult::damaged;
    file.reset(new OffsetFile(std::move(opened)));
    return OpenResult::ok;
}

unsigned OffsetFile::nextLive(unsigned from) const {
    const unsigned end = count();
    while (from < end && at(from) == kRemoved) ++from;
    return from < end ? from : end;
}

bool OffsetFile::append(unsigned offset) {
    std::byte entry[kEntry];
    storeInteger<std::uint32_t>(entry, offset);
    return file_->seek(0, SEEK_FROM_END) && file_->write(entry, kEntry) == kEntry;
}

bool OffsetFile::markRemoved(unsigned id) {
    std::byte* entry = file_->change(kEntry * id, kEntry);
    if (!entry) return false;
    storeInteger<std::uint32_t>(entry, kRemoved);
    return true;
}

}  // namespace fscanner

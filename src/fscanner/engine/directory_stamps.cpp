#include "fscanner/engine/directory_stamps.h"

#include <algorithm>
#include <array>
#include <vector>

#include "fscanner/engine/cache_tables.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

namespace {

constexpr std::string_view kMagic = "FSSTAMPS";
constexpr std::uint32_t kVersion = 1;
constexpr unsigned kHeader = 20;
constexpr unsigned kCounterAt = 12;  // the number of entries follows
constexpr unsigned kEntry = 44;
// So many entries for directories that are gone are no waste.
constexpr unsigned kSpareEntries = 1000;

constexpr std::size_t offsetOf(unsigned index) {
    return kHeader + std::size_t{kEntry} * index;
}

}  // namespace

// ---- The file ---------------------------------------------------------------

bool DirectoryStamps::create(const std::wstring& path, SumsFile& sums) {
    std::string header(kMagic);
    for (const std::uint32_t value : {kVersion, 0U, 0U}) appendInteger(header, value);
    return close() && file_.create(path.c_str(), &sums) &&
           file_->write(header.data(), kHeader) == kHeader;
}

// All of it is compared here, so that damage makes it useless and not the whole cache.
bool DirectoryStamps::open(const std::wstring& path, SumsFile& sums, unsigned counter) {
    const bool opened = file_.open(path.c_str(), &sums) == OpenResult::ok;
    if (opened && file_.holdsAll() && readHeader(counter)) return true;
    count_ = 0;
    (void)close();
    sums.remove(path);
    return false;
}

bool DirectoryStamps::readHeader(unsigned counter) {
    const std::span<const std::byte> content = file_->content();
    ByteRange bytes(content.data(), content.data() + content.size());
    const std::byte* const magic = bytes.take(kMagic.size());
    if (!magic || std::string_view(reinterpret_cast<const char*>(magic), kMagic.size()) != kMagic)
        return false;
    std::uint32_t version = 0, written = 0;
    next_ = 0;
    return bytes.takeInteger(version) && version == kVersion && bytes.takeInteger(written) &&
           written == counter && bytes.takeInteger(count_) && bytes.left() % kEntry == 0 &&
           count_ <= bytes.left() / kEntry;
}

bool DirectoryStamps::close() {
    if (!isOpen()) return true;
    const bool closed = file_.close();
    file_ = SummedFile();
    count_ = next_ = 0;
    return closed;
}

bool DirectoryStamps::finish(unsigned counter) {
    std::byte* const at = file_->change(kCounterAt, 8);
    if (!at) return false;
    storeInteger(at, std::uint32_t{counter});
    storeInteger(at + 4, std::uint32_t{count_});
    return true;
}

// ---- Its entries ------------------------------------------------------------

unsigned DirectoryStamps::idAt(unsigned index) const {
    return loadInteger<std::uint32_t>(file_->content().data() + offsetOf(index));
}

DirectoryStamp DirectoryStamps::stampAt(unsigned index) const {
    const std::byte* at = file_->content().data() + offsetOf(index) + 4;
    DirectoryStamp stamp;
    for (std::uint64_t* value :
         {&stamp.device, &stamp.inode, &stamp.changed, &stamp.modified, &stamp.read}) {
        *value = loadInteger<std::uint64_t>(at);
        at += sizeof *value;
    }
    return stamp;
}

// `count_` where there is none. Walks ask for one ID after the other.
unsigned DirectoryStamps::indexOf(unsigned id) const {
    unsigned first = 0, end = count_;
    if (next_ < count_ && idAt(next_) == id) {
        first = next_;
        end = next_;
    }
    while (first < end) {
        const unsigned middle = first + (end - first) / 2;
        if (idAt(middle) < id)
            first = middle + 1;
        else
            end = middle;
    }
    if (first == count_ || idAt(first) != id) return count_;
    next_ = first + 1;
    return first;
}

DirectoryStamp DirectoryStamps::find(unsigned id) const {
    const unsigned index = indexOf(id);
    return index == count_ ? DirectoryStamp() : stampAt(index);
}

bool DirectoryStamps::put(unsigned id, const DirectoryStamp& stamp) {
    if (!isOpen()) return true;
    if (count_ == 0 || idAt(count_ - 1) < id) {
        if (!write(count_, id, stamp)) return false;
        next_ = ++count_;
        return true;
    }
    const unsigned index = indexOf(id);
    return index == count_ || write(index, id, stamp);
}

// Where entries went, there may be room behind the last one.
bool DirectoryStamps::write(unsigned index, unsigned id, const DirectoryStamp& stamp) {
    std::array<std::byte, kEntry> entry;
    std::byte* to = entry.data();
    storeInteger(to, std::uint32_t{id});
    to += 4;
    for (const std::uint64_t value :
         {stamp.device, stamp.inode, stamp.changed, stamp.modified, stamp.read}) {
        storeInteger(to, value);
        to += sizeof value;
    }
    const std::size_t offset = offsetOf(index);
    if (offset + kEntry > file_->logicalSize())
        return file_->seek(static_cast<long>(offset), SEEK_FROM_START) &&
               file_->write(entry.data(), kEntry) == kEntry;
    std::byte* const at = file_->change(static_cast<unsigned>(offset), kEntry);
    if (at) std::copy(entry.begin(), entry.end(), at);
    return at != nullptr;
}

bool DirectoryStamps::fit(std::span<const unsigned> ids) {
    std::vector<DirectoryStamp> stamps;
    stamps.reserve(ids.size());
    for (const unsigned id : ids) stamps.push_back(find(id));
    count_ = next_ = 0;
    for (std::size_t i = 0; i < ids.size(); ++i)
        if (!put(ids[i], stamps[i])) return false;
    return true;
}

// IDs rise from record to record.
bool DirectoryStamps::fit(FS_Table& directories) {
    Fields record(directories.schema());
    const auto* const directoryId = record.as<Int32Field>(DIRECTORIES_ID);
    std::vector<unsigned> ids;
    unsigned id = 0;
    for (bool more = directories.moveFirst(id); more; more = directories.moveNext(id)) {
        if (!directories.read(id, record)) return false;
        ids.push_back(directoryId->value());
    }
    return fit(ids);
}

bool DirectoryStamps::trim(FS_Table& directories) {
    unsigned live = 0;
    directories.count(COUNT_STORED, &live);
    return count_ / 2 <= live + kSpareEntries || fit(directories);
}

}  // namespace fscanner

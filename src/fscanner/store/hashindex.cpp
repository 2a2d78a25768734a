#include "fscanner/store/hashindex.h"

#include <algorithm>
#include <cwchar>

#include "fscanner/common/numbers.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

namespace {

constexpr unsigned kMaxDecimal = 11;  // 32 bits in decimal, with a terminator

}  // namespace

Index::Index(const wchar_t* indexName, const wchar_t* directory, const wchar_t* fieldName) {
    if (!indexName || !directory || !fieldName) return;
    indexName_ = indexName;
    fieldName_ = fieldName;
    fileName_ = indexName_ + L".idx";
    path_ = joinPath(directory, fileName_);
    named_ = true;
}

Index::Index(const Index& other)
    : indexName_(other.indexName_),
      fieldName_(other.fieldName_),
      fileName_(other.fileName_),
      path_(other.path_),
      named_(other.named_) {}

bool Index::create(SumsFile* sums) {
    if (!named_ || file_) return false;
    SummedFile file;
    if (!file.create(path_.c_str(), sums)) return false;
    file->expectRandomAccess();
    file_ = std::move(file);
    if (init()) return true;
    file_ = {};
    return false;
}

// Lookups read single slots. Without the kernel's read-ahead a cold one is several times faster.
bool Index::open(SumsFile* sums) {
    if (!named_ || file_) return false;
    SummedFile file;
    const OpenResult result = file.open(path_.c_str(), sums);
    const unsigned size = result == OpenResult::ok ? file->logicalSize() : 0;
    const bool fits = size >= kBuckets * kSlot && size % kSlot == 0;
    damaged_ = result != OpenResult::failed && !fits;
    if (!fits) return false;
    file->expectRandomAccess();
    file_ = std::move(file);
    return true;
}

bool Index::close() {
    if (!file_) return false;
    const bool closed = file_.close();
    file_ = {};
    return closed;
}

bool Index::erase() {
    return named_ && !file_ && removeFile(path_.c_str()) == 0;
}

bool Index::init() {
    if (!file_ || !file_->seek(0, SEEK_FROM_START)) return false;
    // An empty head is `kNone` in both words: all bits are 1.
    const std::vector<unsigned char> heads(std::size_t{kBuckets} * kSlot, 0xFF);
    return file_->write(heads.data(), kBuckets * kSlot) == kBuckets * kSlot;
}

bool Index::read(unsigned slot, unsigned* recordId, unsigned* next) const {
    if (!file_) return false;
    *recordId = *next = kNone;
    if (slot >= slotCount()) return true;
    if (!file_.holds(static_cast<unsigned>(at(slot)), kSlot)) return false;
    const std::byte* from = file_->content().data() + at(slot);
    *recordId = loadInteger<std::uint32_t>(from);
    *next = loadInteger<std::uint32_t>(from + 4);
    return true;
}

// Appends the old content of the head before it changes the head. If the disk is full, the chain
// stays as it was.
bool Index::write(unsigned bucket, unsigned recordId) {
    if (!file_ || bucket >= kBuckets) return false;
    unsigned oldId = kNone, oldNext = kNone;
    if (!read(bucket, &oldId, &oldNext)) return false;
    unsigned next = oldNext;
    if (oldId != kNone) {
        next = slotCount();
        if (!append(oldId, oldNext)) return false;
    }
    std::byte* head = file_->change(kSlot * bucket, kSlot);
    if (!head) return false;
    storeInteger<std::uint32_t>(head, recordId);
    storeInteger<std::uint32_t>(head + 4, next);
    return true;
}

bool Index::append(unsigned recordId, unsigned next) {
    std::byte slot[kSlot];
    storeInteger<std::uint32_t>(slot, recordId);
    storeInteger<std::uint32_t>(slot + 4, next);
    return file_->seek(0, SEEK_FROM_END) && file_->write(slot, kSlot) == kSlot;
}

bool Index::isFollower(unsigned slot, unsigned next) const {
    if (next == kNone) return true;
    const unsigned limit = slot < kBuckets ? slotCount() : slot;
    return next >= kBuckets && next < limit;
}

bool Index::isSoundHead(unsigned bucket, unsigned records) const {
    unsigned id = kNone, next = kNone;
    if (!read(bucket, &id, &next)) return false;
    return id == kNone ? next == kNone : id < records && isFollower(bucket, next);
}

// An index has one slot for every id that was ever given, and every chain slot is the follower of
// exactly one slot. So the ids must add up to 0 + 1 + ... + (records - 1), and the links to the sum
// of all chain slot numbers. An id or link that is missing or doubled changes the sums.
bool Index::fits(unsigned records) const {
    const unsigned slots = slotCount();
    std::uint64_t ids = 0, links = 0, filled = 0;
    for (unsigned slot = 0; slot < slots; ++slot) {
        unsigned id = kNone, next = kNone;
        if (!read(slot, &id, &next)) return false;
        if (id == kNone && next == kNone && slot < kBuckets) continue;
        if (id >= records || !isFollower(slot, next)) return false;
        ++filled;
        ids += id;
        if (next != kNone) links += next;
    }
    const auto sumBelow = [](std::uint64_t n) { return n * (n - 1) / 2; };
    return filled == records && ids == sumBelow(records) &&
           links == sumBelow(slots) - sumBelow(kBuckets);
}

namespace {

/// The number that an integer field's key is made of; empty for other fields.
std::optional<unsigned> keyNumber(const Field& field) {
    switch (field.type()) {
        case FIELD_INT8:
            return static_cast<const Int8Field&>(field).value();
        case FIELD_INT16:
            return static_cast<const Int16Field&>(field).value();
        case FIELD_INT32:
            return static_cast<const Int32Field&>(field).value();
        case FIELD_INT64:
            // Deliberate: only the low 32 bits. Values that differ above them share a key.
            return static_cast<unsigned>(static_cast<const Int64Field&>(field).value());
        default:
            return std::nullopt;
    }
}

void makeKey(unsigned number, std::wstring& key) {
    wchar_t decimal[kMaxDecimal];
    key = wcs_itoa(number, decimal);
}

void makeKey(std::wstring_view text, std::wstring& key) {
    key = text;
    wcsupper(key.data());
}

}  // namespace

bool makeIndexKey(const Field& field, std::wstring& key) {
    if (const std::optional<unsigned> number = keyNumber(field)) {
        makeKey(*number, key);
        return true;
    }
    if (field.type() != FIELD_TEXT) return false;
    makeKey(static_cast<const TextField&>(field).view(), key);
    return true;
}

void makeIndexKey(const ExpValue& value, std::wstring& key) {
    if (value.getType() == NUMERIC) {
        makeKey(static_cast<unsigned>(value.getNumericValue()), key);
    } else {
        makeKey(value.text(), key);
    }
}

// Called for every inserted record, so it computes the hash without making the key.
std::optional<unsigned> indexBucket(const Field& field) {
    if (const std::optional<unsigned> number = keyNumber(field)) {
        wchar_t decimal[kMaxDecimal];
        return indexBucket(wcs_itoa(*number, decimal));
    }
    if (field.type() != FIELD_TEXT) return std::nullopt;
    unsigned h = 0;
    for (const wchar_t c : static_cast<const TextField&>(field).view())
        h = hashStep(h, upperCase(c));
    return static_cast<unsigned>(hash(hashStep(h, L'\0'), static_cast<int>(Index::kBuckets)));
}

unsigned indexBucket(const wchar_t* key) {
    return static_cast<unsigned>(hash(key, static_cast<int>(Index::kBuckets)));
}

}  // namespace fscanner

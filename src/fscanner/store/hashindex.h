#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/expr/command.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

/// One hash index of a table. It maps the bucket of a key to the ids of the records with
/// a key of that bucket. It stores no keys, so the user of a chain tests the records.
///
/// The file is an array of slots. Each slot holds a record id and the number of the next
/// slot. The first 65536 slots are the heads, one per bucket; the slots of the chains are
/// appended behind them. A new record is put in the head, and the head's old content moves
/// to a new slot at the end of the file. So slot numbers fall along a chain. A chain in
/// which they do not is damaged; this check also rules out endless walks.
/// docs/formats/index-file.md describes the bytes and has a picture.
class Index {
public:
    static constexpr unsigned kNone = 0xFFFFFFFF;
    static constexpr unsigned kBuckets = 65536;
    /// The length of the heads in bytes, which every index file has.
    static constexpr unsigned kHeadBytes = kBuckets * 8;

    /// Copies the arguments. If one is null, all names are null and every operation fails.
    Index(const wchar_t* indexName, const wchar_t* directory, const wchar_t* fieldName);
    /// Copies only the names; the copy is closed.
    Index(const Index& other);
    Index& operator=(const Index&) = delete;
    ~Index() = default;

    /// Creates or empties the file and writes the heads. False when the index is open. `sums`:
    /// null if no checksums are kept.
    bool create(SumsFile* sums = nullptr);
    bool open(SumsFile* sums = nullptr);
    /// False when the index is closed, and when its content did not reach the disk.
    bool close();
    /// Deletes the file of a closed index.
    bool erase();
    /// Makes every head empty.
    bool init();

    /// Reads the two words of a slot; both are `kNone` for a slot behind the end. False
    /// when the index is closed, and when the slot does not match its checksum.
    bool read(unsigned slot, unsigned* recordId, unsigned* next) const;
    /// Inserts the record at the front of the bucket's chain. False when the index is
    /// closed, for an invalid bucket, and when the file cannot be changed or grow.
    bool write(unsigned bucket, unsigned recordId);

    /// Whether slot `next` may follow `slot` in a chain: `next` is `kNone`, or a chain slot
    /// with a lower number (behind a head: any chain slot).
    bool isFollower(unsigned slot, unsigned next) const;
    /// Whether the bucket's head can be right in a table with `records` ids. To be tested before
    /// `write`, which would build on it.
    bool isSoundHead(unsigned bucket, unsigned records) const;
    /// Whether the index holds each of the ids 0 to `records` - 1 once, and all its chains are
    /// sound. Reads every slot.
    bool fits(unsigned records) const;
    unsigned slotCount() const { return file_ ? file_->logicalSize() / kSlot : 0; }
    bool isOpen() const { return static_cast<bool>(file_); }
    /// Whether the last `open` failed because the file is damaged.
    bool isDamaged() const { return damaged_; }
    /// Whether `FS_Table::checkIndex` has found the index good. Set by the table.
    bool& tested() { return tested_; }
    /// The mapped file of an open index.
    LinuxMmFile& file() { return *file_; }
    /// Waits until everything written is on disk. True for a closed index.
    bool sync() { return !file_ || file_->sync(); }

    /// The names, owned by the index. All are null after a constructor with a null argument.
    const wchar_t* getIndexName() const { return text(indexName_); }
    const wchar_t* getFieldName() const { return text(fieldName_); }
    const wchar_t* getIndexFileName() const { return text(fileName_); }
    const wchar_t* getIndexFullPathName() const { return text(path_); }

private:
    static constexpr unsigned kSlot = 8;

    const wchar_t* text(const std::wstring& name) const { return named_ ? name.c_str() : nullptr; }
    bool append(unsigned recordId, unsigned next);
    static std::size_t at(unsigned slot) { return std::size_t{kSlot} * slot; }

    SummedFile file_;
    std::wstring indexName_;
    std::wstring fieldName_;
    std::wstring fileName_;
    std::wstring path_;
    bool named_ = false;
    bool damaged_ = false;
    bool tested_ = false;
};

/// Shared pointers, because a record set may still walk an index that was removed.
using IndexList = std::vector<std::shared_ptr<Index>>;

/// Makes the key of a field's value: of an integer the low 32 bits in decimal, of a text
/// its upper-case form in the process's locale. False for a field of an unknown type.
bool makeIndexKey(const Field& field, std::wstring& key);
/// Makes the key of a value in a criteria.
void makeIndexKey(const ExpValue& value, std::wstring& key);
/// The bucket of a key that `makeIndexKey` made.
unsigned indexBucket(const wchar_t* key);
/// The bucket of the key of a field's value; empty for a field of an unknown type.
std::optional<unsigned> indexBucket(const Field& field);

}  // namespace fscanner

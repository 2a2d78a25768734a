#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/expr/exp_value.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

/// One hash index of a table: from the bucket of a key to the ids of the records
/// that hold such a key. It stores no keys: who walks a chain tests the records.
///
/// The file is an array of slots, each a record id and the number of the next
/// slot: 65536 heads, one a bucket, then the slots of the chains, appended as
/// they come. docs/formats/index-file.md has the bytes and a picture. What is
/// pushed out of a head goes to a new slot at the end, so along a chain the slot
/// numbers fall: a chain that breaks this is damaged, and no walk can go in circles.
class Index {
public:
    static constexpr unsigned NONE = 0xFFFFFFFF;
    static constexpr unsigned BUCKETS = 65536;
    /// What the chains' heads take, whatever is stored.
    static constexpr unsigned HEAD_BYTES = BUCKETS * 8;

    /// Copies the three; with a null one all names are null and nothing works.
    Index(const wchar_t* indexName, const wchar_t* directory, const wchar_t* fieldName);
    /// The names alone; the copy is closed.
    Index(const Index& other);
    Index& operator=(const Index&) = delete;
    ~Index() = default;

    /// Creates or empties the file and writes the heads. False when it is open. `sums`: null
    /// where none are kept.
    bool create(SumsFile* sums = nullptr);
    bool open(SumsFile* sums = nullptr);
    /// False when none was open, and when its content did not reach the disk.
    bool close();
    /// Deletes the file of a closed index.
    bool erase();
    /// Writes every head empty.
    bool init();

    /// The slot's two words, `NONE` in both for a slot that is not there. False
    /// when closed, and where it is not as it was written.
    bool read(unsigned slot, unsigned* recordId, unsigned* next) const;
    /// Puts the record at the front of the bucket's chain. False when closed, for a
    /// bucket that is none, or when the file cannot grow.
    bool write(unsigned bucket, unsigned recordId);

    /// Whether a slot may follow `slot` in a chain: it ends there, or goes on at a
    /// chain slot of a lower number.
    bool isFollower(unsigned slot, unsigned next) const;
    /// Whether a record may be put at the front of the bucket's chain, where there are this
    /// many records.
    bool isSoundHead(unsigned bucket, unsigned records) const;
    /// Whether each of this many records has its slot, and every chain holds together.
    bool fits(unsigned records) const;
    unsigned slotCount() const { return file_ ? file_->logicalSize() / SLOT : 0; }
    bool isOpen() const { return static_cast<bool>(file_); }
    /// Whether the last `open` found a file that is no index.
    bool isDamaged() const { return damaged_; }
    /// Whether its first use was found good; for the table to say.
    bool& tested() { return tested_; }
    /// Of an open index.
    LinuxMmFile& file() { return *file_; }
    /// Waits until what was written is on disk.
    bool sync() { return !file_ || file_->sync(); }

    /// Null when the names are.
    const wchar_t* getIndexName() const { return text(indexName_); }
    const wchar_t* getFieldName() const { return text(fieldName_); }
    const wchar_t* getIndexFileName() const { return text(fileName_); }
    const wchar_t* getIndexFullPathName() const { return text(path_); }

private:
    static constexpr unsigned SLOT = 8;

    const wchar_t* text(const std::wstring& name) const { return named_ ? name.c_str() : nullptr; }
    bool append(unsigned recordId, unsigned next);
    static std::size_t at(unsigned slot) { return std::size_t{SLOT} * slot; }

    SummedFile file_;
    std::wstring indexName_;
    std::wstring fieldName_;
    std::wstring fileName_;
    std::wstring path_;
    bool named_ = false;
    bool damaged_ = false;
    bool tested_ = false;
};

/// Shared, because a record set may still walk an index that was just removed.
using IndexList = std::vector<std::shared_ptr<Index>>;

/// Makes the key of a field's value: an integer's low 32 bits in decimal, a text
/// in upper case (in the process's locale). False for a field of an unknown type.
bool makeIndexKey(const Field& field, std::wstring& key);
/// The same of the value that a criteria asks for.
void makeIndexKey(const ExpValue& value, std::wstring& key);
/// The bucket of a key in key form.
unsigned indexBucket(const wchar_t* key);
/// The bucket of a field's key; nothing for a field of an unknown type.
std::optional<unsigned> indexBucket(const Field& field);

}  // namespace fscanner

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/platform/abstract_sync.h"
#include "fscanner/store/data_file.h"
#include "fscanner/store/hashindex.h"
#include "fscanner/store/record_codec.h"
#include "fscanner/store/record_filter.h"
#include "fscanner/store/recordset.h"
#include "fscanner/store/undo_journal.h"

namespace fscanner {

/// Part of the prescribed layout of a record set; not used.
struct RecordHeader {
    unsigned words[3] = {110, 0, 0};
};

/// One table of the record store: typed fields, records, hash indexes on fields,
/// cursors, and a lock that processes share.
///
/// A record is identified by its id. Ids grow with every insert and stay the same until
/// a compaction. The files are in the table's directory and named after the table:
///
///     NAME.dat       schema, counts, records        DataFile
///     NAME.pxx       the offset of each record      OffsetFile
///     NAME_idx.dat   the list of indexes            table_indexes.cpp
///     INDEX.idx      an index                       Index
///
/// A table is closed until `create` or `open`. On a closed table all operations fail
/// except `read`. Nothing is synced to disk before `sync` or `close`. The content of the
/// files is checked wherever it is used: an operation that meets bytes which cannot have
/// been written fails, and from then on `damaged` is true.
///
/// One thread at a time. Processes exclude each other by `lock`; the table never calls it
/// itself.
class FS_Table {
    friend class TableReplacement;

public:
    /// Does not touch the disk. When an argument is null or the directory does not exist,
    /// every operation fails.
    FS_Table(const wchar_t* name, const wchar_t* directory, bool compressed);
    FS_Table(const FS_Table&) = delete;
    FS_Table& operator=(const FS_Table&) = delete;
    ~FS_Table();

    // ---- The table ----------------------------------------------------------

    /// Adds a field to the schema of a closed table.
    bool addField(const wchar_t* name, unsigned typeCode);
    /// Creates new, empty files for the schema, which has at most 256 fields, and opens the
    /// table. False when it is open already.
    bool create();
    /// Opens the files and reads the schema from them. False when the table is open already.
    bool open();
    /// Brings all changes to disk and closes the table. The schema is empty then, and all
    /// record sets are deleted: their handles must not be used any more. False when the table
    /// was closed, and when something did not reach the disk.
    bool close();
    /// Waits until all changes are on disk, also those of the indexes.
    bool sync();
    /// Deletes the files of a closed table.
    bool erase();
    /// Rewrites a closed table without its removed records if these are more than `percent` of
    /// the stored ones. Afterwards the ids are 0, 1, 2, ..., and no value is null. If this object
    /// closed the table, the decision uses the counts of that `close`; nobody else may have
    /// changed the table since.
    ///
    /// The table is closed afterwards, also after a failure, which leaves its content unchanged.
    /// After an interruption with a journal, `UndoJournal::recover` restores the old table or
    /// completes the new one. Without a journal there may be files of both.
    bool compact(int percent, UndoJournal* journal = nullptr);
    /// Whether `compact` would rewrite this open table. False for a closed one.
    bool isCompactionDue(int percent) const;
    /// Whether a file of this table was found damaged since the last `create` or the start of
    /// the last `open`. Also valid on a closed table.
    bool damaged() const { return damaged_ || (sums_ && sums_->damaged()); }
    /// From the next `create` or `open` on, the table's files (except the index list) are compared
    /// with the checksums in `sums` when they are read, and `close` updates the checksums. `sums`
    /// must outlive the table. Damage in any file of `sums` counts as damage of this table. By
    /// default a table has no checksums.
    void keepSums(SumsFile* sums) { sums_ = sums; }
    /// Whether all records match their checksums. True for an open table without checksums.
    bool holdsAll() { return isOpen() && offsets_->holdsAll() && data_->holdsAll(); }
    /// The name of the index list file, behind the table's name. The table does not maintain
    /// that file's checksums; its user does.
    static constexpr const wchar_t* kIndexListSuffix = L"_idx.dat";

    /// The mapped files of an open table.
    std::vector<LinuxMmFile*> mappedFiles();

    /// Checks the parts that the next insert builds on: that the counts match the number of ids,
    /// and that the newest record is in every index. Takes about the same time for any size of
    /// the table. A mismatch is noted as damage.
    bool checkEnds();
    /// Checks that the offsets rise and lead into the data file, and that the counts match them.
    /// Reads every entry but no record. A mismatch is noted as damage.
    bool checkOffsets();
    /// Like `checkOffsets`, and checks that each index holds every id (see `Index::fits`). Only
    /// for indexes that were created together with the table. Reads every slot.
    bool checkStructure();

    /// Promises, until the table is closed, that no update has changed or will change an indexed
    /// value. Then walks of an index also detect damage when they meet a record of another
    /// bucket, and when the newest record is missing at the first use.
    void expectConstantKeys() { constantKeys_ = true; }
    /// Declares, until the table is closed, that its texts may contain patterns ("*", "?"). A
    /// pattern equals texts that have another key. So indexes on texts are not used for
    /// criteria then, only for keys that `setHashInfo` names.
    void expectPatterns(bool on) { patterns_ = on; }
    bool mayHoldPatterns() const { return patterns_; }

    const Fields& schema() const { return schema_; }
    bool isOpen() const { return data_ != nullptr; }

    // ---- Records ------------------------------------------------------------

    /// Appends a record and enters it in the indexes. `values` has the table's fields. When the
    /// disk is full, false may mean that the record was stored but is missing in an index.
    bool insert(const Fields& values);
    /// Reads the record into `values`, which has the table's fields. No field is null afterwards
    /// (deliberate). On a closed table the result is true, and `values` is unchanged
    /// (deliberate).
    bool read(unsigned id, Fields& values);
    /// Removes the record. False, and nothing is changed, when there is none of this id. The
    /// indexes keep the id, and walks skip it.
    bool remove(unsigned id);
    /// Replaces the record. In a compressed table it gets a new id. Otherwise it is rewritten in
    /// place, and the indexes are not updated; if a text changes its number of characters, the
    /// record gets a new id.
    bool update(unsigned id, const Fields& values);

    /// Whether there is a record of this id.
    bool isLive(unsigned id) const { return offsets_ && offsets_->isLive(id); }
    /// Set `id` to the first record, or to the next one after `id`. False, and `id` is
    /// unchanged, when there is none.
    bool moveFirst(unsigned& id) const;
    bool moveNext(unsigned& id) const;

    /// Change or read the number of stored (`which` 0) or deleted (1) records. False for any
    /// other `which`.
    bool incCount(int which) { return count(which, 1); }
    bool decCount(int which) { return count(which, -1); }
    bool count(int which, int delta);
    bool count(int which, unsigned* value) const;
    /// The total length of the files of an open table in bytes, with the indexes.
    unsigned long long bytes() const;
    /// An estimate of `bytes()` after a compaction.
    unsigned long long bytesInUse() const;
    /// The length of the data file's header in bytes.
    unsigned headerSize() const { return DataFile::headerSize(schema_); }

    // ---- Record sets --------------------------------------------------------

    RecordSet openRecordSet();
    /// Deletes the record set and empties the handle. False for a handle of another table.
    bool closeRecordSet(RecordSet& recordSet);

    // ---- Hash indexes (see hashindex.h; defined in table_indexes.cpp) --------

    /// Builds an index on a field and writes the index list. False when the table is closed,
    /// for a null name, and when there is an index of that name. True even when building the
    /// index failed (deliberate).
    bool addHashIndex(const wchar_t* indexName, const wchar_t* fieldName);
    /// Builds an index over all records; unlike `insert` it does not skip null values. Does not
    /// write the index list. False also for an index name that is in use or contains "/".
    bool buildHashIndex(const wchar_t* indexName, const wchar_t* fieldName);
    /// The first index with exactly this field or name; null when there is none. With
    /// `detach` it is removed from the table's list.
    std::shared_ptr<Index> searchHashIndexForFieldName(const wchar_t* fieldName, bool detach);
    std::shared_ptr<Index> searchHashIndexForIndexName(const wchar_t* indexName, bool detach);

    /// Read, write and delete the index list file. `retrieveHashIndexList` opens the indexes
    /// and appends them to `list`; false only when the list or an index is damaged.
    bool retrieveHashIndexList(IndexList& list);
    bool saveHashIndexList(const IndexList& list) const;
    bool eraseHashIndexList(const IndexList& list) const;
    /// Enters the record in every index, except where its value is null. Stops with false at
    /// the first index that fails, or whose field is not in `values`.
    bool hashIndexesUpdate(const Fields& values, unsigned recordId);

    /// Find the first and the next live record in the chain of `key` (made by `makeIndexKey`).
    /// `next` is the state of the walk. Records with other keys of the same bucket are
    /// included.
    bool hashIndex_moveFirst(const Index& index, const wchar_t* key, unsigned& recordId,
                             unsigned& next);
    bool hashIndex_moveNext(const Index& index, unsigned& recordId, unsigned& next);

    // ---- For record sets ----------------------------------------------------

    /// The bytes from a record's start to the end of the file. Empty for an id without a
    /// record, and for a damaged record or entry, which is noted. Valid until the next change.
    ByteRange record(unsigned id);
    /// All records of an open table, for a sequential scan. Empty when a file does not match its
    /// checksums.
    StoredRecords storedRecords();
    /// Finds the stored values of a record, one per field, without decoding them. False when
    /// there is no such record, or it is damaged. Valid until the next change.
    bool locate(unsigned id, std::vector<StoredValue>& values);
    RecordCodec& codec() { return codec_; }
    /// Whether the index may be used: false, and damage is noted, when it lacks the newest
    /// record. Tested once per index. Always true unless constant keys are expected.
    bool checkIndex(Index& index);
    /// Whether the record is in the right chain of the index, that of `key`. Otherwise damage is
    /// noted. Always true unless constant keys are expected.
    bool belongs(const Index& index, unsigned id, const std::wstring& key);
    /// Notes damage, with `what` for the log. Returns false.
    bool reportDamage(const char* what);

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// Sets `id` to id - 1 if that record is live. Deliberate: otherwise the entries from
    /// there are searched forwards, while the reported id falls by one per entry.
    bool movePrevious(unsigned& id) const;
    /// Always returns false (deliberate). If there are records, sets `id` to the last one and
    /// `position` to their number less 1.
    bool moveLast(unsigned& id, unsigned& position) const;
    /// Whether the record that was read or written last is the last one in the file.
    bool eof() const;
    /// Removes an index and its file. Always false (deliberate).
    bool removeHashIndex(const wchar_t* indexName);
    static void freeHashIndexList(IndexList& list) { list.clear(); }
    /// Take the table's lock; the results are `SyncStatus`. `LinuxSharedMutex` describes the
    /// time limit, which is in milliseconds.
    int lock();
    int lock(long timeout);
    void unlock();

private:
    static constexpr const wchar_t* kDataSuffix = L".dat";
    static constexpr const wchar_t* kOffsetSuffix = L".pxx";

    enum class Visit { live, removed, damaged };
    struct Counts {
        unsigned stored;
        unsigned deleted;
    };

    bool isUsable() const { return !directory_.empty(); }
    AbstractSync* mutex();
    std::wstring path(const wchar_t* suffix) const { return directory_ + name_ + suffix; }
    OpenResult openFiles();
    void layOut() { codec_.setLayout(RecordLayout(schema_, compressed_)); }
    bool hasFiles() const;
    bool eraseFiles();
    bool holds(unsigned id, ByteRange record);
    Counts counts() const;
    static bool isWorthIt(const Counts& counts, int percent);

    bool rewriteInPlace(unsigned id, const Fields& values);
    bool replace(unsigned id, const Fields& values);

    bool hasAllIndexes() const;
    void bindIndexes(const Fields& values);
    OpenResult loadIndex(const std::wstring& indexName, const std::wstring& fieldName,
                         IndexList& list) const;
    bool fillIndex(Index& index, unsigned field);
    bool readKey(const Index& index, unsigned id, std::wstring& key);
    Visit visitSlot(const Index& index, unsigned slot, unsigned& recordId, unsigned& next);

    std::unique_ptr<DataFile> data_;
    std::unique_ptr<OffsetFile> offsets_;
    RecordCodec codec_;
    std::wstring name_;
    std::wstring directory_;
    bool compressed_;
    bool damaged_ = false;
    SumsFile* sums_ = nullptr;
    std::optional<Counts> closedCounts_;  // at the last `close`
    bool constantKeys_ = false;
    bool patterns_ = false;
    std::size_t position_ = 0;  // the end of the record that was read or written last
    Fields schema_;
    IndexList indexes_;
    // The field of each index in the list of values that was inserted last; null if the
    // list does not have it. Valid while these two numbers and the number of indexes stay
    // the same.
    std::vector<const Field*> indexFields_;
    std::uint64_t boundRevision_ = 0;
    std::uint64_t boundRenames_ = 0;
    std::vector<std::unique_ptr<__recordSet>> recordSets_;
    std::unique_ptr<AbstractSync> mutex_;
};

}  // namespace fscanner

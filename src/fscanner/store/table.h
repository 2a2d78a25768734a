#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/platform/abstract_sync.h"
#include "fscanner/store/data_file.h"
#include "fscanner/store/hashindex.h"
#include "fscanner/store/offset_file.h"
#include "fscanner/store/record_codec.h"
#include "fscanner/store/record_filter.h"
#include "fscanner/store/recordset.h"
#include "fscanner/store/undo_journal.h"

namespace fscanner {

/// Three words of the record set's state, 110 at first in the first.
struct RecordHeader {
    unsigned words[3] = {110, 0, 0};
};

/// One table of the record store: typed fields, records, hash indexes on fields,
/// cursors, and a lock that processes share.
///
/// A record is known by its id, which grows with every insert and stays until a
/// compaction. The files are named after the table, in its directory:
///
///     NAME.dat       schema, counts, records        DataFile
///     NAME.pxx       where each id's record is      OffsetFile
///     NAME_idx.dat   the list of indexes            table_indexes.h
///     INDEX.idx      an index                       Index
///
/// A table is closed until `create` or `open`; on a closed one everything but
/// `read` fails. Nothing is synced to disk before `sync` or `close`. What a file
/// holds is checked wherever it is used: an operation that meets bytes which
/// cannot have been written fails, and `damaged` says so from then on.
///
/// Not synchronised: one thread at a time, and processes by `lock`, which nothing
/// here takes.
class FS_Table {
    friend class TableReplacement;

public:
    /// Nothing is touched on disk. When an argument is null or the directory does
    /// not exist every operation fails.
    FS_Table(const wchar_t* name, const wchar_t* directory, bool compressed);
    FS_Table(const FS_Table&) = delete;
    FS_Table& operator=(const FS_Table&) = delete;
    ~FS_Table();

    // ---- The table ----------------------------------------------------------

    /// Adds to the schema of a closed table.
    bool addField(const wchar_t* name, unsigned typeCode);
    /// Makes the files anew for the schema, which has at most 256 fields. The table
    /// is open then. False when it is open already.
    bool create();
    /// Opens the files and takes the schema from them. False when it is open already.
    bool open();
    /// Brings what changed to disk and closes. The schema is empty then, and record
    /// sets are gone: their handles must not be used. False when it was closed, or
    /// when something did not reach the disk.
    bool close();
    /// Waits until what changed is on disk, the indexes included.
    bool sync();
    /// Deletes the files of a closed table.
    bool erase();
    /// Rewrites a closed table without its removed records when they are more than
    /// `percent` of the stored ones, by the counts of the last `close` where this object
    /// closed it: nobody else may have changed it since. Ids are dense from 0 then, and null flags
    /// gone. The table is closed afterwards, also when it fails; it then holds what it held.
    /// With a journal an interruption leaves a closed table that `UndoJournal::recover` makes
    /// the old or the new one. Without one it may leave files of both.
    bool compact(int percent, UndoJournal* journal = nullptr);
    /// Whether it would rewrite this open table. False of a closed one.
    bool isCompactionDue(int percent) const;
    /// Whether a file of this table was found damaged since the last `create`, or
    /// the start of the last `open`. It may be asked on a closed table.
    bool damaged() const { return damaged_ || (sums_ && sums_->damaged()); }
    /// From the next `create` or `open` on, the table's files but the list of indexes are
    /// compared with their checksums as they are read, and `close` makes those of what was
    /// written. `sums` must outlive the table; what it finds is damage here, whichever of its
    /// files it was found in. A table keeps none at first.
    void keepSums(SumsFile* sums) { sums_ = sums; }
    /// Whether all records are as they were written. Where no sums are kept, they are.
    bool holdsAll() { return isOpen() && offsets_->holdsAll() && data_->holdsAll(); }
    /// Behind the table's name, that of the list of indexes. It is written whole: its sums are
    /// for the user of the table to take.
    static constexpr const wchar_t* INDEX_LIST_SUFFIX = L"_idx.dat";

    /// The mapped files of an open table.
    std::vector<LinuxMmFile*> mappedFiles();

    /// Whether what the next insert stands on fits: the numbers of entries and records, and
    /// the newest record, its place, and its entries in the indexes. Looks at little, whatever
    /// the size of the table. Damage is noted.
    bool checkEnds();
    /// Whether the offsets rise and lead into the data file, and the counts are theirs.
    /// Looks at every entry, at no record. Damage is noted.
    bool checkOffsets();
    /// The same, and whether the indexes hold each record that was inserted since they
    /// were made with the table. Looks at every slot.
    bool checkStructure();

    /// Promises, until the table is closed, that no update has changed or will change
    /// an indexed value. A walk of an index then notes damage when it meets a record
    /// of another bucket, or when the newest record is missing at the first use.
    void expectConstantKeys() { constantKeys_ = true; }
    /// Warns, until the table is closed, that texts in it may be patterns ("*", "?"): those
    /// equal other texts than their keys', so that no criteria is looked up in an index on
    /// a text. A key that is stated (`setHashInfo`) is.
    void expectPatterns(bool on) { patterns_ = on; }
    bool mayHoldPatterns() const { return patterns_; }

    const Fields& schema() const { return schema_; }
    bool isOpen() const { return data_ != nullptr; }

    // ---- Records ------------------------------------------------------------

    /// Appends a record and enters it in the indexes. `values` has the schema.
    bool insert(const Fields& values);
    /// Reads into `values`, which has the schema. On a closed table it is true and
    /// changes nothing (deliberate). No field is null afterwards (deliberate).
    bool read(unsigned id, Fields& values);
    /// Forgets the id; false, nothing changed, where no record has it. The indexes keep
    /// it, and their walks skip it.
    bool remove(unsigned id);
    /// Replaces the record. In the compact form it gets a new id. In the fixed form
    /// it is rewritten in place, and the indexes stay as they are; where a text
    /// changes its number of characters it gets a new id.
    bool update(unsigned id, const Fields& values);

    /// Whether there is a record of this id.
    bool isLive(unsigned id) const { return offsets_ && offsets_->isLive(id); }
    /// The first record; the next after `id`. `id` stays when there is none.
    bool moveFirst(unsigned& id) const;
    bool moveNext(unsigned& id) const;
    /// The record before `id` when that is live. Otherwise the walk goes forward
    /// from there while the id it reports goes on falling (deliberate).
    bool movePrevious(unsigned& id) const;
    /// Sets `id` to the last record and `position` to the number of records less 1
    /// when there is one. Always false (deliberate).
    bool moveLast(unsigned& id, unsigned& position) const;
    /// Whether the record that was read or written last is the file's last.
    bool eof() const;

    /// The stored (0) and the deleted (1) records; false for any other `which`.
    bool incCount(int which) { return count(which, 1); }
    bool decCount(int which) { return count(which, -1); }
    bool count(int which, int delta);
    bool count(int which, unsigned* value) const;
    /// What the files of an open table take on disk, with the indexes; and about how much of
    /// that is left when removed records have been given back.
    unsigned long long bytes() const;
    unsigned long long bytesInUse() const;
    /// The length of the data file's header.
    unsigned headerSize() const { return DataFile::headerSize(schema_); }

    // ---- Record sets and the lock -------------------------------------------

    RecordSet openRecordSet();
    /// Also empties the handle. False for a handle of another table.
    bool closeRecordSet(RecordSet& recordSet);

    /// -21 without a lock. See `LinuxSharedMutex` for what a limit means.
    int lock();
    int lock(long timeout);
    void unlock();

    // ---- Hash indexes (hashindex.h; the source is table_indexes.cpp) ---------

    /// Builds an index on a field and enters it in the list. False when closed, for
    /// a null name, and when there is an index of that name; true even when
    /// building it failed (deliberate).
    bool addHashIndex(const wchar_t* indexName, const wchar_t* fieldName);
    /// Unlike `insert`, which skips null values, it indexes every record. False also
    /// for a name that is taken or cannot be a file's name.
    bool buildHashIndex(const wchar_t* indexName, const wchar_t* fieldName);
    /// Always false, also when it removed the index (deliberate).
    bool removeHashIndex(const wchar_t* indexName);
    /// The first index of exactly this field or name, null when there is none. With
    /// `detach` it is taken out of the table's list.
    std::shared_ptr<Index> searchHashIndexForFieldName(const wchar_t* fieldName, bool detach);
    std::shared_ptr<Index> searchHashIndexForIndexName(const wchar_t* indexName, bool detach);

    bool retrieveHashIndexList(IndexList& list);
    bool saveHashIndexList(const IndexList& list) const;
    bool eraseHashIndexList(const IndexList& list) const;
    static void freeHashIndexList(IndexList& list) { list.clear(); }
    /// Enters the record in every index, but where its value is null. False at the
    /// first index whose field `values` has not.
    bool hashIndexesUpdate(const Fields& values, unsigned recordId);

    /// The first and the next live record in the chain of a key, which is in key
    /// form. Records of other keys are among them.
    bool hashIndex_moveFirst(const Index& index, const wchar_t* key, unsigned& recordId,
                             unsigned& next);
    bool hashIndex_moveNext(const Index& index, unsigned& recordId, unsigned& next);

    // ---- For record sets ----------------------------------------------------

    /// The bytes from a record's start to the end of the file; empty, and damage
    /// is noted, when the id's entry leads nowhere. Valid until the next change.
    ByteRange record(unsigned id);
    /// All records of an open table, to be looked at one after the other; none where a file is
    /// not as it was written.
    StoredRecords storedRecords();
    /// The stored values of a record, one a field, without decoding them. Like `read`
    /// otherwise. Valid until the next change.
    bool locate(unsigned id, std::vector<StoredValue>& values);
    RecordCodec& codec() { return codec_; }
    /// Whether the index may be walked, and whether the record is in the right chain;
    /// for tables that expect constant keys.
    bool checkIndex(Index& index);
    bool belongs(const Index& index, unsigned id, const std::wstring& key);
    /// Notes damage; false.
    bool reportDamage(const char* what);

private:
    static constexpr const wchar_t* DATA_SUFFIX = L".dat";
    static constexpr const wchar_t* OFFSET_SUFFIX = L".pxx";

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
    std::optional<Counts> closedCounts_;  // when it was closed last
    bool constantKeys_ = false;
    bool patterns_ = false;
    std::size_t position_ = 0;  // behind the record that was read or written last
    Fields schema_;
    IndexList indexes_;
    // The indexes' fields in the list of values that was inserted last; null where
    // it has none. Good as long as its revision and their number stand.
    std::vector<const Field*> indexFields_;
    std::uint64_t boundRevision_ = 0;
    std::uint64_t boundRenames_ = 0;
    std::vector<std::unique_ptr<__recordSet>> recordSets_;
    std::unique_ptr<AbstractSync> mutex_;
};

}  // namespace fscanner

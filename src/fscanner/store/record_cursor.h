#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/expr/criteria.h"
#include "fscanner/store/record_filter.h"
#include "fscanner/store/table.h"

namespace fscanner {

/// What a `RecordSet` is a handle on: the place in a table, the buffer, and the
/// criteria with what was made of it.
///
/// A record is tried in three steps, and most are decided by the first: the filter
/// looks at its stored bytes; where that does not settle it, the fields that the
/// criteria reads are decoded and it is checked; on a match the rest is decoded. The
/// buffer always ends up with the last record that was tried, whole.
class __recordSet {
public:
    /// Takes a copy of the table's schema as its buffer.
    explicit __recordSet(FS_Table& table);

    bool setCriteria(CriteriaEvaluator* criteria, bool flag);
    void onUndecided(std::function<void()> handler) { undecided_ = std::move(handler); }
    bool moveFirst();
    bool moveNext();
    bool movePrevious();
    bool moveLast();
    unsigned count() const;
    unsigned id() const { return id_; }

    bool insert() { return table_.insert(buffer()); }
    bool update() { return table_.update(id_, buffer()); }
    bool remove() { return table_.remove(id_); }

    bool walksIndex() const { return index_ != nullptr; }
    /// See `RecordSet::stopAtCandidates`.
    void stopAtCandidates(std::span<const unsigned> unknown);
    /// See `RecordSet::readLazily`.
    void readLazily() { lazy_ = buffer_.count() <= 64; }

    Fields& buffer() {
        if (pending_ != 0) fetchAll();
        return buffer_;
    }
    /// The buffer with one field of it up to date, and perhaps no other.
    Fields& bufferFor(unsigned index) {
        if (index < 64 && (pending_ >> index & 1) != 0) fetch(index);
        return buffer_;
    }
    FS_Table& table() { return table_; }
    void printFields() const;

private:
    enum class Verdict { match, noMatch, unreadable };

    void selectIndex();
    bool select(const ExpValue& key);
    void prepareChecks();
    bool first();
    bool next();
    template <typename Step>
    bool findMatch(bool found, Step step);
    Verdict tryRecord();
    Verdict checkRecord(ByteRange record);
    bool findForwards(bool found);
    bool scanTable(bool found);
    bool readRecord();
    void fetch(unsigned index);
    void fetchAll();

    unsigned id_ = 0;
    unsigned position_ = 0;
    FS_Table& table_;
    RecordHeader header_;
    Fields buffer_;
    std::wstring key_;
    unsigned nextSlot_ = Index::kNone;
    std::shared_ptr<Index> index_;
    bool flag_ = false;
    bool active_ = false;
    bool refused_ = false;  // no compiling criteria, or no sound index: nothing matches
    CriteriaEvaluator* criteria_ = nullptr;
    std::function<void()> undecided_;
    RecordFilter filter_;
    bool evaluates_ = true;  // where the filter is unsure
    bool lazy_ = false;
    std::uint64_t pending_ = 0;         // a bit for each field that is not yet in the buffer
    std::vector<StoredValue> located_;  // where they are
    std::vector<bool> wanted_;          // which fields the criteria reads, up to the last
};

}  // namespace fscanner

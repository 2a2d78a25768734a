#include "fscanner/store/record_cursor.h"

#include <bit>

#include "fscanner/common/debug.h"
#include "fscanner/expr/index_key.h"

namespace fscanner {

__recordSet::__recordSet(FS_Table& table) : table_(table), buffer_(table.schema()) {}

bool __recordSet::setCriteria(CriteriaEvaluator* criteria, bool flag) {
    const std::shared_ptr<Index> walked = std::move(index_);
    key_.clear();
    undecided_ = nullptr;
    filter_ = {};
    fetchAll();
    lazy_ = false;
    evaluates_ = true;
    refused_ = false;
    criteria_ = criteria;
    flag_ = flag;
    const wchar_t* text = criteria ? criteria->getCriteria() : nullptr;
    active_ = text && *text;
    if (active_) prepareChecks();
    // A slot of one index means nothing in another.
    if (index_ != walked) nextSlot_ = Index::kNone;
    return true;
}

void __recordSet::prepareChecks() {
    criteria_->setFields(&buffer_);
    refused_ = !criteria_->compile();
    if (refused_) {
        debug("RecordSet::setCriteria - criteria does not compile, nothing matches\n");
        return;
    }
    selectIndex();
    filter_ = RecordFilter(criteria_->tree(), buffer_, flag_);
    wanted_.clear();
    for (unsigned i = 0; i < buffer_.count(); ++i) {
        if (!criteria_->readsField(buffer_.at(i)->name())) continue;
        wanted_.resize(i + 1);
        wanted_[i] = true;
    }
}

void __recordSet::stopAtCandidates(std::span<const unsigned> unknown) {
    if (!active_ || refused_) return;
    filter_ = RecordFilter(criteria_->tree(), buffer_, flag_, unknown);
    evaluates_ = false;
}

void __recordSet::selectIndex() {
    if (const ExpValue* stated = criteria_->statedKey()) {
        select(*stated);
        return;
    }
    for (const ExpValue& key : indexKeys(criteria_->tree(), flag_)) {
        if (key.getType() == STRING && table_.mayHoldPatterns()) continue;
        if (select(key)) return;
    }
}

/// False when the table has no such index.
bool __recordSet::select(const ExpValue& key) {
    index_ = table_.searchHashIndexForFieldName(key.getNValueString(), false);
    if (!index_) return false;
    makeIndexKey(key, key_);
    refused_ = !table_.checkIndex(*index_);
    return true;
}

// ---- Moves ------------------------------------------------------------------

bool __recordSet::first() {
    if (!walksIndex()) return table_.moveFirst(id_);
    return table_.hashIndex_moveFirst(*index_, key_.c_str(), id_, nextSlot_);
}

bool __recordSet::next() {
    if (!walksIndex()) return table_.moveNext(id_);
    return table_.hashIndex_moveNext(*index_, id_, nextSlot_);
}

bool __recordSet::moveFirst() {
    if (refused_ || !findForwards(first())) return false;
    position_ = 0;
    return true;
}

bool __recordSet::moveNext() {
    if (refused_ || !findForwards(next())) return false;
    ++position_;
    return true;
}

bool __recordSet::findForwards(bool found) {
    if (!walksIndex() && !filter_.isEmpty()) return scanTable(found);
    return findMatch(found, [this] { return next(); });
}

bool __recordSet::movePrevious() {
    const auto step = [this] { return table_.movePrevious(id_); };
    if (refused_ || walksIndex() || !findMatch(step(), step)) return false;
    --position_;
    return true;
}

bool __recordSet::moveLast() {
    return !walksIndex() && table_.moveLast(id_, position_);
}

unsigned __recordSet::count() const {
    unsigned id = 0, position = 0;
    table_.moveLast(id, position);
    return position;
}

/// Tries records until one matches; `found` tells whether there is a first one.
template <typename Step>
bool __recordSet::findMatch(bool found, Step step) {
    if (!found) return false;
    unsigned tried = id_;
    for (; found; found = step()) {
        tried = id_;
        const Verdict verdict = tryRecord();
        if (verdict == Verdict::noMatch && walksIndex() && !table_.belongs(*index_, id_, key_))
            return false;
        if (verdict != Verdict::noMatch) return verdict == Verdict::match;
    }
    id_ = tried;
    readRecord();
    return false;
}

/// The same for a walk over the whole table, most of which the filter turns away.
bool __recordSet::scanTable(bool found) {
    if (!found) return false;
    do {
        const fscanner::Verdict judged =
            filter_.judgeFrom(table_.codec().layout(), table_.storedRecords(), id_);
        if (judged == fscanner::Verdict::match) return readRecord();
        if (judged == fscanner::Verdict::noMatch) break;
        const ByteRange record = table_.record(id_);
        if (record.empty()) return false;
        const Verdict verdict = checkRecord(record);
        if (verdict != Verdict::noMatch) return verdict == Verdict::match;
    } while (table_.moveNext(id_));
    readRecord();
    return false;
}

__recordSet::Verdict __recordSet::tryRecord() {
    if (!active_) return readRecord() ? Verdict::match : Verdict::unreadable;
    const ByteRange record = table_.record(id_);
    if (record.empty()) return Verdict::unreadable;
    if (filter_.isEmpty()) return checkRecord(record);
    switch (filter_.judge(table_.codec().layout(), record)) {
        case fscanner::Verdict::noMatch:
            return Verdict::noMatch;
        case fscanner::Verdict::match:
            return readRecord() ? Verdict::match : Verdict::unreadable;
        default:
            return checkRecord(record);
    }
}

__recordSet::Verdict __recordSet::checkRecord(ByteRange record) {
    if (!evaluates_) return readRecord() ? Verdict::match : Verdict::unreadable;
    const DecodeResult decoded = table_.codec().decodeSome(record, buffer_, wanted_);
    if (decoded == DecodeResult::damaged) table_.reportDamage("a record");
    if (decoded != DecodeResult::ok) return Verdict::unreadable;
    if (criteria_->check(&buffer_, nullptr, flag_) <= 0) {
        if (undecided_ && criteria_->failedOnRecord() && readRecord()) undecided_();
        return Verdict::noMatch;
    }
    return readRecord() ? Verdict::match : Verdict::unreadable;
}

bool __recordSet::readRecord() {
    pending_ = 0;
    if (!lazy_ || !table_.isOpen()) return table_.read(id_, buffer_);
    if (!table_.locate(id_, located_)) return false;
    pending_ =
        buffer_.count() == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << buffer_.count()) - 1;
    return true;
}

void __recordSet::fetch(unsigned index) {
    if (!table_.codec().decodeValue(located_[index], *buffer_.at(index)))
        table_.reportDamage("a record");
    pending_ &= ~(std::uint64_t{1} << index);
}

void __recordSet::fetchAll() {
    while (pending_ != 0) fetch(static_cast<unsigned>(std::countr_zero(pending_)));
}

// ---- The log ----------------------------------------------------------------

namespace {

template <typename F>
void print(const Field& field) {
    const auto value = static_cast<const F&>(field).value();
    debug("%ls = %d\n", field.name(), static_cast<int>(value));
}

template <>
void print<Int64Field>(const Field& field) {
    const auto value = static_cast<const Int64Field&>(field).value();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
    // To libc the format asks for an int in 64 columns, and that is what it gets.
    debug("%ls = %I64d\n", field.name(), static_cast<int>(value));
#pragma GCC diagnostic pop
}

template <>
void print<TextField>(const Field& field) {
    debug("%ls = %ls\n", field.name(), static_cast<const TextField&>(field).value());
}

}  // namespace

void __recordSet::printFields() const {
    static constexpr void (*printers[])(const Field&) = {print<Int8Field>, print<Int16Field>,
                                                         print<Int32Field>, print<Int64Field>,
                                                         print<TextField>};
    for (unsigned i = 0; i < buffer_.count(); ++i) {
        const Field& field = *buffer_.at(i);
        printers[field.type() - FIELD_INT8](field);
    }
}

}  // namespace fscanner

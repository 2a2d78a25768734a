#include "fscanner/store/recordset.h"

#include "fscanner/store/record_cursor.h"

namespace fscanner {

// ---- Forwarding -------------------------------------------------------------

bool RecordSet::setCriteria(CriteriaEvaluator* criteria, bool flag) {
    return recordSet_ && recordSet_->setCriteria(criteria, flag);
}

void RecordSet::onUndecided(std::function<void()> handler) {
    if (recordSet_) recordSet_->onUndecided(std::move(handler));
}

void RecordSet::stopAtCandidates(std::span<const unsigned> unknown) {
    if (recordSet_) recordSet_->stopAtCandidates(unknown);
}

void RecordSet::readLazily() {
    if (recordSet_) recordSet_->readLazily();
}

bool RecordSet::moveFirst() {
    return recordSet_ && recordSet_->moveFirst();
}

bool RecordSet::moveNext() {
    return recordSet_ && recordSet_->moveNext();
}

bool RecordSet::walksIndex() const {
    return recordSet_ && recordSet_->walksIndex();
}

unsigned RecordSet::recordId() const {
    return recordSet_ ? recordSet_->id() : 0;
}

bool RecordSet::insert() {
    return recordSet_ && recordSet_->insert();
}

bool RecordSet::update() {
    return recordSet_ && recordSet_->update();
}

bool RecordSet::remove() {
    return recordSet_ && recordSet_->remove();
}

// ---- Fields by index and by name --------------------------------------------

namespace {

template <typename F>
F* find(__recordSet& recordSet, unsigned index) {
    return recordSet.bufferFor(index).as<F>(index);
}

template <typename F>
F* find(__recordSet& recordSet, const wchar_t* name) {
    return fieldAs<F>(recordSet.buffer().name(name));
}

}  // namespace

template <typename F, typename Key>
F* RecordSet::field(Key key) const {
    return recordSet_ ? find<F>(*recordSet_, key) : nullptr;
}

template <typename F, typename Key>
typename F::Value RecordSet::number(Key key) const {
    const F* found = field<F>(key);
    return found ? found->value() : typename F::Value{0};
}

template <typename F, typename Key, typename Value>
bool RecordSet::assign(Key key, Value value) {
    F* found = field<F>(key);
    if (found) found->value(value);
    return found != nullptr;
}

const wchar_t* RecordSet::getFieldAsString(unsigned index) const {
    const TextField* found = field<TextField>(index);
    return found ? found->value() : nullptr;
}

unsigned RecordSet::getFieldAsInt32(unsigned index) const {
    return number<Int32Field>(index);
}

unsigned long long RecordSet::getFieldAsInt64(unsigned index) const {
    return number<Int64Field>(index);
}

bool RecordSet::setFieldAsString(unsigned index, const wchar_t* value) {
    return assign<TextField>(index, value);
}

bool RecordSet::setFieldAsInt32(unsigned index, unsigned value) {
    return assign<Int32Field>(index, value);
}

bool RecordSet::setFieldAsInt64(unsigned index, unsigned long long value) {
    return assign<Int64Field>(index, value);
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

bool RecordSet::movePrevious() {
    return recordSet_ && recordSet_->movePrevious();
}

bool RecordSet::moveLast() {
    return recordSet_ && recordSet_->moveLast();
}

unsigned RecordSet::count() const {
    return recordSet_ ? recordSet_->count() : 0;
}

unsigned char RecordSet::getFieldAsInt8(unsigned index) const {
    return number<Int8Field>(index);
}

unsigned short RecordSet::getFieldAsInt16(unsigned index) const {
    return number<Int16Field>(index);
}

const wchar_t* RecordSet::getFieldAsString(const wchar_t* name) const {
    const TextField* found = field<TextField>(name);
    return found ? found->value() : nullptr;
}

unsigned char RecordSet::getFieldAsInt8(const wchar_t* name) const {
    return number<Int8Field>(name);
}

unsigned short RecordSet::getFieldAsInt16(const wchar_t* name) const {
    return number<Int16Field>(name);
}

unsigned RecordSet::getFieldAsInt32(const wchar_t* name) const {
    return number<Int32Field>(name);
}

unsigned long long RecordSet::getFieldAsInt64(const wchar_t* name) const {
    return number<Int64Field>(name);
}

bool RecordSet::setFieldAsInt8(unsigned index, unsigned char value) {
    return assign<Int8Field>(index, value);
}

bool RecordSet::setFieldAsInt16(unsigned index, unsigned short value) {
    return assign<Int16Field>(index, value);
}

bool RecordSet::setFieldAsString(const wchar_t* name, const wchar_t* value) {
    return assign<TextField>(name, value);
}

bool RecordSet::setFieldAsInt8(const wchar_t* name, unsigned char value) {
    return assign<Int8Field>(name, value);
}

bool RecordSet::setFieldAsInt16(const wchar_t* name, unsigned short value) {
    return assign<Int16Field>(name, value);
}

bool RecordSet::setFieldAsInt32(const wchar_t* name, unsigned value) {
    return assign<Int32Field>(name, value);
}

bool RecordSet::setFieldAsInt64(const wchar_t* name, unsigned long long value) {
    return assign<Int64Field>(name, value);
}

int RecordSet::lock(int timeout) {
    return recordSet_ ? recordSet_->table().lock(long{timeout}) : SYNC_FAILED;
}

int RecordSet::unlock() {
    if (!recordSet_) return SYNC_FAILED;
    recordSet_->table().unlock();
    return SYNC_SUCCESS;
}

void RecordSet::printFields() const {
    if (!recordSet_) return;
    recordSet_->buffer();  // all of it
    recordSet_->printFields();
}

}  // namespace fscanner

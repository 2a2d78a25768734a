#pragma once

#include <functional>
#include <memory>
#include <span>

#include "fscanner/common/fields.h"
#include "fscanner/expr/criteria.h"

namespace fscanner {

class FS_Table;
class __recordSet;

/// A handle on a cursor over one table, with an optional criteria.
///
/// Copies share the cursor. The table owns it: `FS_Table::closeRecordSet` ends it
/// and empties that handle; closing the table ends it and leaves the handles,
/// which must not be used then. An empty handle fails everything.
///
/// The cursor has a buffer of the table's fields. A move reads the record into
/// it; getters, setters, `insert` and `update` work on it.
class RecordSet {
public:
    RecordSet() = default;

    /// From now on moves stop at matching records only; null or an empty text
    /// means all. The criteria is the caller's and must outlive its use here; it
    /// gets the buffer as its fields. One that does not compile matches nothing.
    /// `flag` is the case flag of its checks. The cursor does not move.
    bool setCriteria(CriteriaEvaluator* criteria, bool flag);

    /// Until the next `setCriteria`, `handler` is called for each record on which the
    /// criteria could not be evaluated; it is in the buffer then, and does not match.
    void onUndecided(std::function<void()> handler);

    /// Until the next `setCriteria`, moves stop at each record that may match if the values of the
    /// fields `unknown` are not those of the record. The criteria is not evaluated.
    void stopAtCandidates(std::span<const unsigned> unknown);

    /// Until the next `setCriteria`, a move decodes a field when it is asked for.
    /// Nothing may change the table meanwhile, and the criteria's own fields, unless
    /// it is checked by a move, are not up to date.
    void readLazily();

    /// Whether the cursor is on a matching record, which is then in the buffer. A
    /// criteria that fixes the value of an indexed field reads that chain alone,
    /// newest first.
    bool moveFirst();
    bool moveNext();

    /// Whether the criteria lets the moves read one chain of an index.
    bool walksIndex() const;
    /// The id of the record that the cursor is on.
    unsigned recordId() const;

    bool insert();
    bool update();
    bool remove();

    /// A field's value. Null or 0 when there is no such field, or when it is of
    /// another class. The text is valid until the next move or assignment.
    const wchar_t* getFieldAsString(unsigned index) const;
    unsigned getFieldAsInt32(unsigned index) const;
    unsigned long long getFieldAsInt64(unsigned index) const;
    /// False when there is no such field, or when it is of another class.
    bool setFieldAsString(unsigned index, const wchar_t* value);
    bool setFieldAsInt32(unsigned index, unsigned value);
    bool setFieldAsInt64(unsigned index, unsigned long long value);

    explicit operator bool() const { return recordSet_ != nullptr; }

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// Fails where the criteria lets the moves read one chain of an index.
    bool movePrevious();
    /// Moves to the last record, of whatever kind, reads nothing and is always
    /// false (deliberate).
    bool moveLast();
    /// The number of records less 1, 0 for none; the criteria plays no part (deliberate).
    unsigned count() const;

    unsigned char getFieldAsInt8(unsigned index) const;
    unsigned short getFieldAsInt16(unsigned index) const;
    const wchar_t* getFieldAsString(const wchar_t* name) const;
    unsigned char getFieldAsInt8(const wchar_t* name) const;
    unsigned short getFieldAsInt16(const wchar_t* name) const;
    unsigned getFieldAsInt32(const wchar_t* name) const;
    unsigned long long getFieldAsInt64(const wchar_t* name) const;
    bool setFieldAsInt8(unsigned index, unsigned char value);
    bool setFieldAsInt16(unsigned index, unsigned short value);
    bool setFieldAsString(const wchar_t* name, const wchar_t* value);
    bool setFieldAsInt8(const wchar_t* name, unsigned char value);
    bool setFieldAsInt16(const wchar_t* name, unsigned short value);
    bool setFieldAsInt32(const wchar_t* name, unsigned value);
    bool setFieldAsInt64(const wchar_t* name, unsigned long long value);

    /// The table's lock; -21 without a table.
    int lock(int timeout);
    int unlock();

    /// Writes the buffer to the debug log, a line a field.
    void printFields() const;

private:
    friend class FS_Table;
    explicit RecordSet(__recordSet* recordSet) : recordSet_(recordSet) {}

    template <typename F, typename Key>
    F* field(Key key) const;
    template <typename F, typename Key>
    typename F::Value number(Key key) const;
    template <typename F, typename Key, typename Value>
    bool assign(Key key, Value value);

    __recordSet* recordSet_ = nullptr;
};

}  // namespace fscanner

#pragma once

#include <cstdint>

#include "fscanner/expr/conditions.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/record_encoding.h"

namespace fscanner {

/// The records of a table as they lie in its files; valid until the next change.
struct StoredRecords {
    static constexpr unsigned kRemoved = 0;

    unsigned offset(unsigned id) const {
        return loadInteger<std::uint32_t>(offsets + sizeof(std::uint32_t) * id);
    }
    /// From a record's start to the end of the file; empty when none can start there.
    ByteRange from(unsigned at) const {
        if (at < first || at >= end) return {};
        return {content + at, content + end};
    }

    /// Asks for the record's first bytes. The processor does it by itself within a page only.
    void prefetch(unsigned id) const {
        const unsigned at = id < count ? offset(id) : kRemoved;
        if (at >= first && at < end) __builtin_prefetch(content + at);
    }

    const std::byte* offsets = nullptr;
    unsigned count = 0;  ///< of the offsets
    const std::byte* content = nullptr;
    unsigned first = 0;  ///< where the first record starts
    unsigned end = 0;
};

/// Judges most records on their stored bytes, before anything is decoded.
class RecordFilter {
public:
    RecordFilter() = default;
    /// Conditions on the fields `unknown` are not judged.
    RecordFilter(const Tree& criteria, const Fields& schema, bool caseSensitive,
                 std::span<const unsigned> unknown = {})
        : conditions_(criteria, schema, caseSensitive, Conditions::First::numbers, unknown) {}

    bool isEmpty() const { return conditions_.isEmpty(); }
    /// Of the record at the start of `record`. A damaged one is unsure at the
    /// damage, and may be rejected before it.
    Verdict judge(const RecordLayout& layout, ByteRange record) const;
    /// Of the first live record from `id` on that is not rejected; `id` moves to it. When all
    /// are, the verdict is `noMatch` and `id` the last live one, or unchanged if there is none.
    Verdict judgeFrom(const RecordLayout& layout, const StoredRecords& records, unsigned& id) const;

private:
    Conditions conditions_;
};

}  // namespace fscanner

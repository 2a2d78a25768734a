#pragma once

#include <cstdint>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/expr/tree.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/record_encoding.h"
#include "fscanner/store/text_test.h"

namespace fscanner {

/// The records of a table as they lie in its files; valid until the next change.
struct StoredRecords {
    static constexpr unsigned REMOVED = 0;

    unsigned offset(unsigned id) const {
        return loadInteger<std::uint32_t>(offsets + sizeof(std::uint32_t) * id);
    }
    /// From a record's start to the end of the file; empty when none can start there.
    ByteRange from(unsigned at) const {
        if (at < first || at >= end) return {};
        return {content + at, content + end};
    }

    /// A hint that this one is next but some: records follow each other over pages that
    /// the processor does not foresee.
    void prefetch(unsigned id) const {
        const unsigned at = id < count ? offset(id) : REMOVED;
        if (at >= first && at < end) __builtin_prefetch(content + at);
    }

    const std::byte* offsets = nullptr;
    unsigned count = 0;  ///< of the offsets
    const std::byte* content = nullptr;
    unsigned first = 0;  ///< where the first record starts
    unsigned end = 0;
};

/// Judges most records on their stored bytes, before anything is decoded.
///
/// It is made of those conditions of a criteria that every match fulfils (its
/// operands of "&&") and that compare a field with a literal: numbers by any
/// relation, texts by "==" and "!=" where the literal is plain ASCII or a pattern
/// of one "*" in front, one behind, or both. When one of them surely fails, so
/// does the criteria; when they are all of it and surely hold, it matches. What is
/// not sure is left to the evaluation: the rest of a criteria, a stored text that is
/// itself a pattern, and one of other than ASCII where its letters could fold to ASCII.
class RecordFilter {
public:
    RecordFilter() = default;
    RecordFilter(const Tree& criteria, const Fields& schema, bool caseSensitive);

    enum class Verdict { noMatch, unsure, match };

    bool isEmpty() const { return conditions_.empty(); }
    /// Whether a record with this value of a field surely does not match.
    bool dismisses(unsigned field, const StoredText& text) const;
    bool dismisses(unsigned field, long long number) const;
    /// Of the record at the start of `record`. A damaged one is unsure at the
    /// damage, and may be judged before it.
    Verdict judge(const RecordLayout& layout, ByteRange record) const;
    /// Of the first live record from `id` on that is not turned away, to which `id`
    /// moves. `noMatch` when all are: `id` is the last live one then, or stays.
    Verdict judgeFrom(const RecordLayout& layout, const StoredRecords& records, unsigned& id) const;

private:
    static constexpr unsigned MAX_TEXTS = 4;

    struct Condition {
        unsigned field;
        CompareOperator relation;
        bool isText;
        long long number;
        TextTest text;
    };

    bool add(const TreeNode& condition, const Fields& schema, bool caseSensitive);
    template <typename Encoding>
    Verdict judgeAs(const RecordLayout& layout, ByteRange record) const;
    template <typename Encoding>
    Verdict judgeAllAs(const RecordLayout& layout, const StoredRecords& records,
                       unsigned& id) const;
    template <typename Encoding>
    Verdict judgeFirstTexts(const RecordLayout& layout, const StoredRecords& records,
                            unsigned& id) const;
    Verdict wholeVerdict() const { return isWhole_ ? Verdict::match : Verdict::unsure; }
    Verdict judgeTexts(const StoredText* texts) const;
    static Verdict judgeText(const Condition& condition, const StoredText& text);

    std::vector<Condition> conditions_;  // in the order of their fields
    unsigned texts_ = 0;                 // how many of them test a text
    bool testsOnlyTheFirstText_ = false;
    bool isWhole_ = true;  // the criteria holds nothing else
};

}  // namespace fscanner

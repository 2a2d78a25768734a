#include "fscanner/store/record_filter.h"

#include <algorithm>
#include <optional>

#include "fscanner/expr/index_key.h"
#include "fscanner/store/record_encoding.h"

namespace fscanner {

namespace {

// ---- The criteria -----------------------------------------------------------

bool isEquality(CompareOperator relation) {
    return relation == COMPARE_EQUAL || relation == COMPARE_NOT_EQUAL;
}

std::optional<unsigned> positionOf(std::wstring_view name, const Fields& schema) {
    for (unsigned i = 0; i < schema.count(); ++i) {
        if (name == schema.at(i)->name()) return i;
    }
    return std::nullopt;
}

/// Nothing for a literal that the bytes alone cannot judge.
std::optional<TextTest> textTest(std::wstring_view pattern, bool caseSensitive) {
    const bool starred = pattern.starts_with(L'*');
    if (starred) pattern.remove_prefix(1);
    const bool open = pattern.ends_with(L'*');
    if (open) pattern.remove_suffix(1);
    TextTest test;
    test.fold = !caseSensitive;
    for (const wchar_t c : pattern) {
        if (c <= 0 || c >= 0x80 || c == L'*' || c == L'?') return std::nullopt;
        const auto byte = static_cast<char>(c);
        const char small = text_test::small(byte);
        test.literal += caseSensitive ? byte : small;
        if (!test.fold) continue;
        if (small == 'i') test.holdsForSure = false;
        // Two letters outside ASCII, the dotted I and the Kelvin sign, fold to ASCII.
        if (small == 'i' || small == 'k') test.judgesForeign = false;
    }
    std::copy_n(test.literal.begin(), std::min(test.literal.size(), test.block.size()),
                test.block.begin());
    if (starred) test.kind = open ? TextTest::Kind::contains : TextTest::Kind::suffix;
    if (!starred && open) test.kind = TextTest::Kind::prefix;
    return test;
}

}  // namespace

RecordFilter::RecordFilter(const Tree& criteria, const Fields& schema, bool caseSensitive) {
    for (const TreeNode* condition : conjuncts(criteria))
        if (!add(*condition, schema, caseSensitive)) isWhole_ = false;
    std::stable_sort(conditions_.begin(), conditions_.end(),
                     [](const auto& a, const auto& b) { return a.field < b.field; });
    testsOnlyTheFirstText_ =
        conditions_.size() == 1 && conditions_[0].isText && conditions_[0].field == 0;
}

/// Takes a condition up, if it is one of those that can be.
bool RecordFilter::add(const TreeNode& node, const Fields& schema, bool caseSensitive) {
    const auto comparison = fieldComparison(node);
    if (!comparison || comparison->relation > COMPARE_NOT_EQUAL) return false;
    const Token& literal = *comparison->literal;
    const CompareOperator code = comparison->relation;
    const auto field = positionOf(comparison->field->text(), schema);
    if (!field) return false;
    Condition condition{
        *field, code, schema.at(*field)->type() == FIELD_TEXT, literal.getNumericValue(), {}};
    if (condition.isText != (literal.getType() == TOKEN_STRING)) return false;
    if (condition.isText) {
        auto test = textTest(literal.text(), caseSensitive);
        if (!isEquality(code) || !test || texts_ == MAX_TEXTS) return false;
        // An "I" taken for an "i" must not turn a record away.
        if (code == COMPARE_NOT_EQUAL && !test->holdsForSure) return false;
        condition.text = std::move(*test);
        ++texts_;
    }
    conditions_.push_back(std::move(condition));
    return true;
}

[[gnu::always_inline]] inline RecordFilter::Verdict RecordFilter::judgeText(
    const Condition& condition, const StoredText& text) {
    const TextTest& test = condition.text;
    if (!test.isSureOf(text_test::examine(text))) return Verdict::unsure;
    if (test.holds(text) != (condition.relation == COMPARE_EQUAL)) return Verdict::noMatch;
    return test.holdsForSure ? Verdict::match : Verdict::unsure;
}

bool RecordFilter::dismisses(unsigned field, const StoredText& text) const {
    return std::any_of(conditions_.begin(), conditions_.end(), [&](const Condition& condition) {
        return condition.isText && condition.field == field &&
               judgeText(condition, text) == Verdict::noMatch;
    });
}

bool RecordFilter::dismisses(unsigned field, long long number) const {
    return std::any_of(conditions_.begin(), conditions_.end(), [&](const Condition& condition) {
        return !condition.isText && condition.field == field &&
               !holds(number, condition.relation, condition.number);
    });
}

RecordFilter::Verdict RecordFilter::judge(const RecordLayout& layout, ByteRange record) const {
    return withEncoding(layout,
                        [&](auto encoding) { return judgeAs<decltype(encoding)>(layout, record); });
}

RecordFilter::Verdict RecordFilter::judgeFrom(const RecordLayout& layout,
                                              const StoredRecords& records, unsigned& id) const {
    return withEncoding(
        layout, [&](auto encoding) { return judgeAllAs<decltype(encoding)>(layout, records, id); });
}

/// So many records fill some cache lines: what is asked for now is there in time.
constexpr unsigned AHEAD = 24;

template <typename Encoding>
RecordFilter::Verdict RecordFilter::judgeAllAs(const RecordLayout& layout,
                                               const StoredRecords& records, unsigned& id) const {
    if (testsOnlyTheFirstText_) return judgeFirstTexts<Encoding>(layout, records, id);
    for (unsigned next = id; next < records.count; ++next) {
        records.prefetch(next + AHEAD);
        const unsigned offset = records.offset(next);
        if (offset == StoredRecords::REMOVED) continue;
        id = next;
        const Verdict verdict = judgeAs<Encoding>(layout, records.from(offset));
        if (verdict != Verdict::noMatch) return verdict;
    }
    return Verdict::noMatch;
}

/// The same where all that counts is a text at the start of each record, as it is when files
/// are searched by name: a loop that has room for nothing else.
template <typename Encoding>
RecordFilter::Verdict RecordFilter::judgeFirstTexts(const RecordLayout& layout,
                                                    const StoredRecords& records,
                                                    unsigned& id) const {
    const Condition& condition = conditions_.front();
    const std::size_t bitmap = layout.bitmapLength;
    Verdict verdict = Verdict::noMatch;
    unsigned last = id;
    for (unsigned next = id; next < records.count && verdict == Verdict::noMatch; ++next) {
        records.prefetch(next + AHEAD);
        const unsigned offset = records.offset(next);
        if (offset == StoredRecords::REMOVED) continue;
        last = next;
        ByteRange record = records.from(offset);
        std::uint64_t size = 0;
        if (!record.take(bitmap) || !Encoding::readLength(record, size) ||
            size > std::min<std::size_t>(record.left(), 0xFFFF)) {
            verdict = Verdict::unsure;
            break;
        }
        verdict =
            judgeText(condition, {reinterpret_cast<const char*>(record.at()), size, record.left()});
    }
    id = last;
    return isWhole_ || verdict == Verdict::noMatch ? verdict : Verdict::unsure;
}

/// Numbers are compared as they are met, texts behind them: that takes longer.
template <typename Encoding>
RecordFilter::Verdict RecordFilter::judgeAs(const RecordLayout& layout, ByteRange record) const {
    if (!record.take(layout.bitmapLength)) return Verdict::unsure;
    StoredText texts[MAX_TEXTS];
    unsigned next = 0, textCount = 0;
    StoredValue value;
    for (const Condition& condition : conditions_) {
        for (; next <= condition.field; ++next) {
            if (!readValue<Encoding>(layout.types[next], record, value)) return Verdict::unsure;
        }
        if (condition.isText) {
            texts[textCount++] = {value.text.data(), value.text.size(),
                                  value.text.size() + record.left()};
        } else {
            const auto number = static_cast<long long>(value.number);
            if (!holds(number, condition.relation, condition.number)) return Verdict::noMatch;
        }
    }
    return textCount == 0 ? wholeVerdict() : judgeTexts(texts);
}

RecordFilter::Verdict RecordFilter::judgeTexts(const StoredText* texts) const {
    Verdict verdict = wholeVerdict();
    for (const Condition& condition : conditions_) {
        if (!condition.isText) continue;
        const Verdict one = judgeText(condition, *texts++);
        if (one == Verdict::noMatch) return one;
        if (one == Verdict::unsure) verdict = one;
    }
    return verdict;
}

}  // namespace fscanner

#include "fscanner/store/record_filter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "fscanner/store/record_encoding.h"

namespace fscanner {

namespace {

using TextTest = RecordFilter::TextTest;

// ---- Stored texts -----------------------------------------------------------

constexpr std::uint64_t ONES = 0x0101010101010101;
constexpr std::uint64_t HIGH_BITS = 0x8080808080808080;

/// Not 0 if a byte of the word, all of whose bytes are below 0x80, is zero.
constexpr std::uint64_t zeroBytes(std::uint64_t word) {
    return (word - ONES) & HIGH_BITS;
}

/// Whether eight bytes are ASCII, no terminator and no wildcard.
bool isPlainWord(std::uint64_t word) {
    if ((word & HIGH_BITS) != 0) return false;
    const std::uint64_t odd =
        zeroBytes(word) | zeroBytes(word ^ ONES * '*') | zeroBytes(word ^ ONES * '?');
    return odd == 0;
}

std::uint64_t wordAt(const char* from) {
    std::uint64_t word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

/// In whole words, the last of which overlaps the one before.
bool isPlain(std::string_view text) {
    constexpr std::size_t step = sizeof(std::uint64_t);
    if (text.size() < step) {
        std::uint64_t word = ONES * 'x';
        for (const char c : text) word = word << 8 | static_cast<unsigned char>(c);
        return isPlainWord(word);
    }
    const char* const last = text.data() + text.size() - step;
    for (const char* at = text.data(); at < last; at += step) {
        if (!isPlainWord(wordAt(at))) return false;
    }
    return isPlainWord(wordAt(last));
}

/// ASCII small letters. In some locales "I" is no capital of "i".
constexpr std::array<char, 256> SMALL = [] {
    std::array<char, 256> table{};
    for (unsigned c = 0; c < table.size(); ++c) {
        table[c] = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
    return table;
}();

char small(char c) {
    return SMALL[static_cast<unsigned char>(c)];
}

bool equal(const char* text, const std::string& literal, bool fold) {
    if (literal.empty()) return true;
    // Most texts differ in the first character: no call for them.
    if (!fold) return *text == literal[0] && std::memcmp(text, literal.data(), literal.size()) == 0;
    return std::equal(literal.begin(), literal.end(), text,
                      [](char wanted, char c) { return wanted == small(c); });
}

bool contains(std::string_view text, const std::string& literal, bool fold) {
    if (!fold) return text.find(literal) != text.npos;
    for (; text.size() >= literal.size(); text.remove_prefix(1)) {
        if (equal(text.data(), literal, true)) return true;
    }
    return false;
}

// ---- The criteria -----------------------------------------------------------

bool isField(const TreeNode* node) {
    return Tree::isLeaf(node) && node->data.getType() == TOKEN_FIELD;
}

bool isLiteral(const TreeNode* node) {
    if (!Tree::isLeaf(node)) return false;
    return node->data.getType() == TOKEN_NUMBER || node->data.getType() == TOKEN_STRING;
}

/// The relation with its sides exchanged.
CompareOperator mirrored(CompareOperator relation) {
    switch (relation) {
        case COMPARE_GREATER_EQUAL:
            return COMPARE_LESS_EQUAL;
        case COMPARE_LESS_EQUAL:
            return COMPARE_GREATER_EQUAL;
        case COMPARE_GREATER:
            return COMPARE_LESS;
        case COMPARE_LESS:
            return COMPARE_GREATER;
        default:
            return relation;
    }
}

bool compare(long long left, CompareOperator relation, long long right) {
    switch (relation) {
        case COMPARE_EQUAL:
            return left == right;
        case COMPARE_GREATER_EQUAL:
            return left >= right;
        case COMPARE_LESS_EQUAL:
            return left <= right;
        case COMPARE_GREATER:
            return left > right;
        case COMPARE_LESS:
            return left < right;
        default:
            return left != right;
    }
}

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
        test.literal += caseSensitive ? byte : small(byte);
        if (test.fold && small(byte) == 'i') test.holdsForSure = false;
    }
    if (starred) test.kind = open ? TextTest::Kind::contains : TextTest::Kind::suffix;
    if (!starred && open) test.kind = TextTest::Kind::prefix;
    return test;
}

}  // namespace

bool TextTest::holds(std::string_view text) const {
    if (kind == Kind::contains) return contains(text, literal, fold);
    if (text.size() < literal.size()) return false;
    if (kind == Kind::exact && text.size() != literal.size()) return false;
    const std::size_t at = kind == Kind::suffix ? text.size() - literal.size() : 0;
    return equal(text.data() + at, literal, fold);
}

RecordFilter::RecordFilter(const Tree& criteria, const Fields& schema, bool caseSensitive) {
    gather(criteria.getRoot(), schema, caseSensitive);
    std::stable_sort(conditions_.begin(), conditions_.end(),
                     [](const auto& a, const auto& b) { return a.field < b.field; });
}

/// All that stands under the "&&" at the top. A tree may be deep: no recursion.
void RecordFilter::gather(const TreeNode* root, const Fields& schema, bool caseSensitive) {
    std::vector<const TreeNode*> open{root};
    while (!open.empty()) {
        const TreeNode* node = open.back();
        open.pop_back();
        if (!node) continue;
        if (node->data.is(TOKEN_OPBOOL, BOOL_AND)) {
            open.push_back(Tree::getLeft(node));
            open.push_back(Tree::getRight(node));
        } else if (node->data.getType() != TOKEN_OPREL || !add(node, schema, caseSensitive)) {
            isWhole_ = false;
        }
    }
}

/// Takes a relation up, if it is one of those that can be.
bool RecordFilter::add(const TreeNode* relation, const Fields& schema, bool caseSensitive) {
    const TreeNode* left = Tree::getLeft(relation);
    const TreeNode* right = Tree::getRight(relation);
    auto code = static_cast<CompareOperator>(relation->data.getNumericValue());
    if (isField(right) && isLiteral(left)) {
        std::swap(left, right);
        code = mirrored(code);
    }
    if (!isField(left) || !isLiteral(right) || code > COMPARE_NOT_EQUAL) return false;
    const auto field = positionOf(left->data.text(), schema);
    if (!field) return false;
    Condition condition{
        *field, code, schema.at(*field)->type() == FIELD_TEXT, right->data.getNumericValue(), {}};
    if (condition.isText != (right->data.getType() == TOKEN_STRING)) return false;
    if (condition.isText) {
        auto test = textTest(right->data.text(), caseSensitive);
        if (!isEquality(code) || !test) return false;
        // An "I" taken for an "i" must not turn a record away.
        if (code == COMPARE_NOT_EQUAL && !test->holdsForSure) return false;
        condition.text = std::move(*test);
    }
    conditions_.push_back(std::move(condition));
    return true;
}

RecordFilter::Verdict RecordFilter::judge(const RecordLayout& layout, ByteRange record) const {
    return withEncoding(layout,
                        [&](auto encoding) { return judgeAs<decltype(encoding)>(layout, record); });
}

template <typename Encoding>
RecordFilter::Verdict RecordFilter::judgeAs(const RecordLayout& layout, ByteRange record) const {
    if (!record.take(layout.bitmapLength)) return Verdict::unsure;
    Verdict verdict = isWhole_ ? Verdict::match : Verdict::unsure;
    unsigned next = 0;
    StoredValue value;
    for (const Condition& condition : conditions_) {
        for (; next <= condition.field; ++next) {
            if (!readValue<Encoding>(layout.types[next], record, value)) return Verdict::unsure;
        }
        if (condition.isText) {
            const Verdict text = judgeText(condition, value.text);
            if (text == Verdict::noMatch) return text;
            if (text == Verdict::unsure) verdict = text;
        } else {
            const auto number = static_cast<long long>(value.number);
            if (!compare(number, condition.relation, condition.number)) return Verdict::noMatch;
        }
    }
    return verdict;
}

RecordFilter::Verdict RecordFilter::judgeText(const Condition& condition, std::string_view text) {
    const bool holds = condition.text.holds(text);
    if (!isPlain(text)) return Verdict::unsure;
    if (holds != (condition.relation == COMPARE_EQUAL)) return Verdict::noMatch;
    return condition.text.holdsForSure ? Verdict::match : Verdict::unsure;
}

}  // namespace fscanner

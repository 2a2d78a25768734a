#include "fscanner/fs/record_merge.h"

#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "fscanner/fs/encoded_record.h"
#include "fscanner/platform/linuxfile.h"

namespace fscanner {

namespace {

using Bytes = std::span<const unsigned char>;

Bytes contentOf(const LinuxMmFile& file, std::size_t length) {
    const auto content = file.content().first(length);
    return {reinterpret_cast<const unsigned char*>(content.data()), content.size()};
}

// Whether `next` may stand behind `previous`.
class Order {
public:
    Order(EncodedOrder order, bool ascending) : order_(order), ascending_(ascending) {}
    bool follows(const EncodedRecord& previous, const EncodedRecord& next) const {
        const int order = order_(previous, next);
        return ascending_ ? order <= 0 : order >= 0;
    }

private:
    EncodedOrder order_;
    bool ascending_;
};

// Walks the records of one file.
class Cursor {
public:
    Cursor(Bytes bytes, const Order& order) : at_(bytes.data()), end_(at_ + bytes.size()) {
        order_ = &order;
        if (!atEnd()) current_ = readWellFormed(at_);
    }
    bool atEnd() const { return at_ == end_; }
    const EncodedRecord& current() const { return current_; }

    // Goes on to the next record; false when a run ends before it.
    bool advance() {
        const EncodedRecord previous = current_;
        at_ = previous.end();
        if (atEnd()) return false;
        current_ = readWellFormed(at_);
        return order_->follows(previous, current_);
    }
    // The bytes from here to the end of the run.
    Bytes takeRun() {
        const unsigned char* start = at_;
        while (advance()) {
        }
        return {start, at_};
    }

private:
    const unsigned char* at_;
    const unsigned char* end_;
    EncodedRecord current_;
    const Order* order_;
};

// Overwrites a mapped file from its start, growing it in large steps: a step
// costs system calls.
class RunWriter {
public:
    explicit RunWriter(LinuxMmFile& file) : file_(file) { file_.seek(0, SEEK_FROM_START); }
    bool append(Bytes run) {
        if (run.size() > file_.logicalSize() - written_ && !extend(run.size())) return false;
        std::memcpy(file_.mutableContent().data() + written_, run.data(), run.size());
        written_ += run.size();
        return true;
    }
    std::size_t written() const { return written_; }

private:
    static constexpr unsigned GROWTH = 1 << 18;
    bool extend(std::size_t needed);

    LinuxMmFile& file_;
    std::size_t written_ = 0;
};

bool RunWriter::extend(std::size_t needed) {
    const std::vector<std::byte> zeros(GROWTH);
    file_.seek(0, SEEK_FROM_END);
    while (file_.logicalSize() - written_ < needed) {
        if (file_.write(zeros.data(), GROWTH) != GROWTH) return false;
    }
    return true;
}

bool distribute(Bytes source, const Order& order, RunWriter& first, RunWriter& second) {
    RunWriter* target = &first;
    RunWriter* other = &second;
    for (Cursor cursor(source, order); !cursor.atEnd(); std::swap(target, other)) {
        if (!target->append(cursor.takeRun())) return false;
    }
    return true;
}

// Merged records go straight into the source, which has exactly their length.
class MergeTarget {
public:
    explicit MergeTarget(std::span<std::byte> bytes) : at_(bytes.data()) {}
    void append(const unsigned char* bytes, std::size_t length) {
        std::memcpy(at_, bytes, length);
        at_ += length;
    }
    void append(Bytes run) { append(run.data(), run.size()); }

private:
    std::byte* at_;
};

void mergeRun(Cursor& first, Cursor& second, const Order& order, MergeTarget& target) {
    for (;;) {
        const bool takeFirst = order.follows(first.current(), second.current());
        Cursor& taken = takeFirst ? first : second;
        Cursor& other = takeFirst ? second : first;
        target.append(taken.current().begin, taken.current().length);
        if (!taken.advance()) {
            target.append(other.takeRun());
            return;
        }
    }
}

unsigned merge(Cursor first, Cursor second, const Order& order, MergeTarget target) {
    unsigned runs = 0;
    for (; !first.atEnd() && !second.atEnd(); ++runs) mergeRun(first, second, order, target);
    for (; !first.atEnd(); ++runs) target.append(first.takeRun());
    for (; !second.atEnd(); ++runs) target.append(second.takeRun());
    return runs;
}

}  // namespace

EncodedMerge::Outcome ResultRecordMerge::sort(SortFiles files, bool ascending, bool caseSensitive) {
    const std::size_t length = files.source.logicalSize();
    const EncodedOrder compare = encodedOrder(key_, caseSensitive);
    if (compare == nullptr || !isWellFormed(contentOf(files.source, length)))
        return Outcome::notApplicable;
    if (!files.first.create() || !files.second.create()) return Outcome::failed;
    const Order order(compare, ascending);
    unsigned runs = 0;
    do {
        RunWriter first(files.first);
        RunWriter second(files.second);
        if (!distribute(contentOf(files.source, length), order, first, second))
            return Outcome::failed;
        runs = merge(Cursor(contentOf(files.first, first.written()), order),
                     Cursor(contentOf(files.second, second.written()), order), order,
                     MergeTarget(files.source.mutableContent()));
    } while (runs > 1);
    return Outcome::sorted;
}

}  // namespace fscanner

#include "fscanner/fs/record_merge.h"

#include <cstring>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "fscanner/fs/encoded_record.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_serializator_file.h"
#include "fscanner/platform/abstract_file.h"
#include "fscanner/platform/linuxfile.h"

namespace fscanner {

// ---- By callbacks -----------------------------------------------------------

namespace {

// Leaves the file as reading past its end does, with the end flag set.
void skipToEnd(AbstractFile& file) {
    char past;
    file.seek(0, SEEK_FROM_END);
    file.read(&past, 1);
}

std::unique_ptr<FsFileInfo> load(AbstractFile& file) {
    auto record = std::make_unique<FsFileInfo>();
    FsSerializator_OnFile from(&file, false);
    if (record->loadObject(from) == 0) return record;
    skipToEnd(file);
    return nullptr;
}

bool compareBy(FsSortKey key, void* a, void* b, unsigned op, bool caseSensitive) {
    auto* left = static_cast<FsFileInfo*>(a);
    auto* right = static_cast<FsFileInfo*>(b);
    return left->compare(*right, static_cast<int>(key), op, caseSensitive);
}

}  // namespace

int fs_read(AbstractFile* file, void** out) {
    *out = nullptr;
    if (file == nullptr) return 0;
    *out = load(*file).release();
    return *out != nullptr ? 1 : 0;
}

int fs_write(AbstractFile* file, void* record) {
    if (file == nullptr || record == nullptr) return 0;
    FsSerializator_OnFile to(file, false);
    return static_cast<FsFileInfo*>(record)->saveObject(to) == 0 ? 1 : 0;
}

bool fs_readCurrent(AbstractFile* file, void** out) {
    *out = nullptr;
    if (file == nullptr) return false;
    const long position = file->tell();
    auto record = load(*file);
    if (!record || file->eof()) return false;
    file->seek(position, SEEK_FROM_START);
    *out = record.release();
    return true;
}

void fs_free(void* record) {
    delete static_cast<FsFileInfo*>(record);
}

bool fs_compare_path(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_PATH, a, b, op, caseSensitive);
}

bool fs_compare_file(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_NAME, a, b, op, caseSensitive);
}

bool fs_compare_pathname(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_PATHNAME, a, b, op, caseSensitive);
}

bool fs_compare_size(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_SIZE, a, b, op, caseSensitive);
}

// ---- By bytes ---------------------------------------------------------------

namespace {

using Bytes = std::span<const unsigned char>;

Bytes contentOf(const LinuxMmFile& file, std::size_t length) {
    const auto content = file.content().first(length);
    return {reinterpret_cast<const unsigned char*>(content.data()), content.size()};
}

// Whether `next` may stand behind `previous`. A template, so that the inner loops
// have their comparison inline.
template <EncodedOrder compare, bool ascending>
struct Order {
    static bool follows(const EncodedRecord& previous, const EncodedRecord& next) {
        const int order = compare(previous, next);
        return ascending ? order <= 0 : order >= 0;
    }
};

// Walks the records of one file.
template <class Order>
class Cursor {
public:
    explicit Cursor(Bytes bytes) : at_(bytes.data()), end_(at_ + bytes.size()) {
        if (!atEnd()) current_ = readWellFormed(at_);
    }
    bool atEnd() const { return at_ == end_; }
    const EncodedRecord& current() const { return current_; }

    // Goes on to the next record; false when a run ends before it.
    bool advance() {
        at_ = current_.end();
        if (atEnd()) return false;
        const EncodedRecord next = readWellFormed(at_);
        const bool sameRun = Order::follows(current_, next);
        current_ = next;
        return sameRun;
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
};

// Overwrites a mapped file from its start, growing it in large steps: a step
// costs system calls.
class RunWriter {
public:
    explicit RunWriter(LinuxMmFile& file) : file_(file) { file_.seek(0, SEEK_FROM_START); }
    bool append(Bytes run) {
        if (run.size() > file_.logicalSize() - written_ && !extend(run.size())) return false;
        const auto length = static_cast<unsigned>(run.size());
        std::byte* to = file_.change(static_cast<unsigned>(written_), length);
        if (to == nullptr) return false;
        std::memcpy(to, run.data(), length);
        written_ += length;
        return true;
    }
    std::size_t written() const { return written_; }

private:
    static constexpr unsigned kGrowth = 1 << 18;
    bool extend(std::size_t needed);

    LinuxMmFile& file_;
    std::size_t written_ = 0;
};

bool RunWriter::extend(std::size_t needed) {
    const std::vector<std::byte> zeros(kGrowth);
    file_.seek(0, SEEK_FROM_END);
    while (file_.logicalSize() - written_ < needed) {
        if (file_.write(zeros.data(), kGrowth) != kGrowth) return false;
    }
    return true;
}

// Merged records go straight into the source, which has exactly their length.
class MergeTarget {
public:
    explicit MergeTarget(std::byte* at) : at_(at) {}
    void append(const unsigned char* bytes, std::size_t length) {
        std::memcpy(at_, bytes, length);
        at_ += length;
    }
    void append(Bytes run) { append(run.data(), run.size()); }

private:
    std::byte* at_;
};

template <class Order>
bool distribute(Bytes source, RunWriter& first, RunWriter& second) {
    RunWriter* target = &first;
    RunWriter* other = &second;
    for (Cursor<Order> cursor(source); !cursor.atEnd(); std::swap(target, other)) {
        if (!target->append(cursor.takeRun())) return false;
    }
    return true;
}

template <class Order>
void mergeRun(Cursor<Order>& first, Cursor<Order>& second, MergeTarget& target) {
    for (;;) {
        const bool takeFirst = Order::follows(first.current(), second.current());
        Cursor<Order>& taken = takeFirst ? first : second;
        target.append(taken.current().begin, taken.current().length);
        if (!taken.advance()) {
            target.append((takeFirst ? second : first).takeRun());
            return;
        }
    }
}

template <class Order>
unsigned merge(Bytes firstRuns, Bytes secondRuns, MergeTarget target) {
    Cursor<Order> first(firstRuns);
    Cursor<Order> second(secondRuns);
    unsigned runs = 0;
    for (; !first.atEnd() && !second.atEnd(); ++runs) mergeRun(first, second, target);
    for (; !first.atEnd(); ++runs) target.append(first.takeRun());
    for (; !second.atEnd(); ++runs) target.append(second.takeRun());
    return runs;
}

template <class Order>
bool sortBy(SortFiles files) {
    const std::size_t length = files.source.logicalSize();
    unsigned runs = 0;
    do {
        RunWriter first(files.first);
        RunWriter second(files.second);
        if (!distribute<Order>(contentOf(files.source, length), first, second)) return false;
        std::byte* const target = files.source.change(0, static_cast<unsigned>(length));
        if (target == nullptr && length != 0) return false;
        runs = merge<Order>(contentOf(files.first, first.written()),
                            contentOf(files.second, second.written()), MergeTarget(target));
    } while (runs > 1);
    return true;
}

using Sorter = bool (*)(SortFiles);

template <EncodedOrder compare>
Sorter sorter(bool ascending) {
    return ascending ? sortBy<Order<compare, true>> : sortBy<Order<compare, false>>;
}

Sorter sorterFor(unsigned key, bool ascending, bool caseSensitive) {
    switch (key) {
        case FS_SORT_PATH:
            return caseSensitive ? sorter<comparePaths>(ascending)
                                 : sorter<compareFoldedPaths>(ascending);
        case FS_SORT_NAME:
            return caseSensitive ? sorter<compareNames>(ascending)
                                 : sorter<compareFoldedNames>(ascending);
        case FS_SORT_PATHNAME:
            return caseSensitive ? sorter<comparePathNames>(ascending)
                                 : sorter<compareFoldedPathNames>(ascending);
        case FS_SORT_SIZE:
            return sorter<compareSizes>(ascending);
        default:
            return nullptr;
    }
}

}  // namespace

EncodedMerge::Outcome ResultRecordMerge::sort(SortFiles files, bool ascending, bool caseSensitive) {
    const Sorter sorter = sorterFor(key_, ascending, caseSensitive);
    if (sorter == nullptr || !isWellFormed(contentOf(files.source, files.source.logicalSize())))
        return Outcome::notApplicable;
    const bool sorted = files.first.create() && files.second.create() && sorter(files);
    return sorted ? Outcome::sorted : Outcome::failed;
}

}  // namespace fscanner

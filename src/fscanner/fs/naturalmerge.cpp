#include "fscanner/fs/naturalmerge.h"

#include <string>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/temp_files.h"
#include "fscanner/platform/sysfactory.h"

// One pass spreads the runs of the source over the two auxiliary files in turn,
// and merges them back in pairs:
//
//     source  3 5 | 1 4 | 2           first   3 5 | 2
//                                     second  1 4
//     source  1 3 4 5 | 2             until one run is left
//
// A run ends where the next record does not follow. Runs that meet in an
// auxiliary file and happen to follow each other are one run from then on.

namespace fscanner {

namespace {

// An auxiliary file: made for its owner alone, and gone with this object.
class AuxiliaryFile {
public:
    explicit AuxiliaryFile(const std::string& directory)
        : temporary_(TemporaryFile::create(directory)) {
        if (temporary_) file_ = SysFactory::createMmFile(toWide(temporary_->path()).c_str());
        if (file_) file_->setSyncOnClose(false);
    }
    LinuxMmFile* get() const { return file_.get(); }

private:
    std::unique_ptr<TemporaryFile> temporary_;
    std::unique_ptr<LinuxMmFile> file_;  // closed before the file is removed
};

std::string directoryOf(const std::wstring& file) {
    const std::size_t end = file.rfind(L'/');
    return end == file.npos ? "." : toMultibyte(file.substr(0, end + 1));
}

bool atEnd(AbstractFile& file) {
    const long position = file.tell();
    file.seek(0, SEEK_FROM_END);
    const bool end = file.tell() == position;
    file.seek(position, SEEK_FROM_START);
    return end;
}

}  // namespace

NaturalMergeSort::NaturalMergeSort(Compare compare, Read read, Write write, ReadCurrent readCurrent,
                                   Free free) {
    if (compare != nullptr && read != nullptr && write != nullptr && readCurrent != nullptr &&
        free != nullptr) {
        callbacks_ = {compare, read, write, readCurrent, free};
    }
}

bool NaturalMergeSort::chooseOperators(unsigned direction) {
    if (direction != FS_SORT_ASCENDING && direction != FS_SORT_DESCENDING) return false;
    const bool ascending = direction == FS_SORT_ASCENDING;
    runOperator_ = ascending ? COMPARE_GREATER : COMPARE_LESS;
    mergeOperator_ = ascending ? COMPARE_LESS_EQUAL : COMPARE_GREATER_EQUAL;
    return true;
}

bool NaturalMergeSort::sort(const wchar_t* fileName, unsigned direction, bool caseSensitive) {
    debug("NaturalMergeSort::sort - entering... [%ls]\n", fileName);
    if (fileName == nullptr || !chooseOperators(direction) || callbacks_.free == nullptr)
        return false;
    caseSensitive_ = caseSensitive;
    const std::unique_ptr<LinuxMmFile> source = SysFactory::createMmFile(fileName);
    if (!source || !source->open()) return false;
    source->setSyncOnClose(false);
    debug("NaturalMergeSort::sort - file to sort opened!\n");
    return sortOpened(fileName, *source);
}

bool NaturalMergeSort::sortOpened(const wchar_t* fileName, LinuxMmFile& source) {
    debug("NaturalMergeSort::sort - first tmp file is [%ls.a]\n", fileName);
    debug("NaturalMergeSort::sort - second tmp file is [%ls.b]\n", fileName);
    const std::string directory = directory_.empty() ? directoryOf(fileName) : directory_;
    const AuxiliaryFile first(directory);
    const AuxiliaryFile second(directory);
    if (first.get() == nullptr || second.get() == nullptr) {
        debug("NaturalMergeSort::sort - the tmp files cannot be made!\n");
        return false;
    }
    const SortFiles files{source, *first.get(), *second.get()};
    const bool ascending = runOperator_ == COMPARE_GREATER;
    auto outcome = EncodedMerge::Outcome::notApplicable;
    if (encoded_) outcome = encoded_->sort(files, ascending, caseSensitive_);
    const bool sorted = outcome == EncodedMerge::Outcome::notApplicable
                            ? sortByCallbacks(files)
                            : outcome == EncodedMerge::Outcome::sorted;
    if (!sorted) debug("NaturalMergeSort::sort - a file cannot be written!\n");
    return sorted;
}

bool NaturalMergeSort::sortByCallbacks(SortFiles files) {
    writeFailed_ = false;
    unsigned runs = 0;
    do {
        if (!pass(files, runs)) return false;
    } while (runs > 1);
    return true;
}

// The source is emptied only when all its records are in the auxiliary files: a
// disk that is full then has room for them again.
bool NaturalMergeSort::pass(SortFiles files, unsigned& runs) {
    auto& [source, first, second] = files;
    if (!first.create() || !second.create()) return false;
    source.seek(0, SEEK_FROM_START);
    distribute(source, first, second);
    first.seek(0, SEEK_FROM_START);
    second.seek(0, SEEK_FROM_START);
    if (writeFailed_ || !source.close() || !source.create()) return false;
    runs = merge(first, second, source);
    first.close();
    second.close();
    return !writeFailed_;
}

NaturalMergeSort::Record NaturalMergeSort::next(AbstractFile& file) const {
    void* record = nullptr;
    callbacks_.read(&file, &record);
    return {record, callbacks_.free};
}

NaturalMergeSort::Record NaturalMergeSort::peek(AbstractFile& file) const {
    void* record = nullptr;
    callbacks_.readCurrent(&file, &record);
    return {record, callbacks_.free};
}

bool NaturalMergeSort::holds(const Record& a, unsigned op, const Record& b) const {
    return a && b && callbacks_.compare(a.get(), b.get(), op, caseSensitive_);
}

// Moves one record and says whether its run ends with it. `following` becomes the
// record after it, or null. A cut-off record meets the end of the file and is
// dropped.
bool NaturalMergeSort::copy(AbstractFile& source, AbstractFile& target, Record& following) {
    following = none();
    const Record record = next(source);
    if (source.eof() || !record) return true;
    if (callbacks_.write(&target, record.get()) == 0) writeFailed_ = true;
    following = peek(source);
    return !following || holds(record, runOperator_, following);
}

void NaturalMergeSort::copyrun(AbstractFile& source, AbstractFile& target, Record& last) {
    while (!copy(source, target, last)) {
    }
}

void NaturalMergeSort::distribute(AbstractFile& source, AbstractFile& first, AbstractFile& second) {
    Record last = none();
    do {
        copyrun(source, first, last);
        if (!atEnd(source)) copyrun(source, second, last);
    } while (!atEnd(source) && !writeFailed_);
}

void NaturalMergeSort::mergerun(AbstractFile& first, AbstractFile& second, AbstractFile& target) {
    Record a = none();
    Record b = none();
    for (;;) {
        if (!a) a = peek(first);
        if (!b) b = peek(second);
        const bool takeFirst = holds(a, mergeOperator_, b);
        Record& taken = takeFirst ? a : b;
        Record& waiting = takeFirst ? b : a;
        if (copy(takeFirst ? first : second, target, taken)) {
            copyrun(takeFirst ? second : first, target, waiting);
            return;
        }
    }
}

unsigned NaturalMergeSort::merge(AbstractFile& first, AbstractFile& second, AbstractFile& target) {
    unsigned runs = 0;
    Record last = none();
    for (; !atEnd(first) && !atEnd(second); ++runs) mergerun(first, second, target);
    for (; !atEnd(first); ++runs) copyrun(first, target, last);
    for (; !atEnd(second); ++runs) copyrun(second, target, last);
    return runs;
}

}  // namespace fscanner

#pragma once

#include <memory>
#include <string>
#include <utility>

namespace fscanner {

class AbstractFile;
class LinuxMmFile;

/// The file to sort and its two auxiliary files, open. All are mapped files.
struct SortFiles {
    LinuxMmFile& source;
    LinuxMmFile& first;
    LinuxMmFile& second;
};

/// A shorter way to the result of `NaturalMergeSort` for files whose layout it
/// knows: the same records in the same order, ties included.
class EncodedMerge {
public:
    enum class Outcome {
        sorted,
        failed,         ///< the source holds all its records, in some order
        notApplicable,  ///< nothing was touched; the callbacks have to do it
    };
    virtual ~EncodedMerge() = default;
    virtual Outcome sort(SortFiles files, bool ascending, bool caseSensitive) = 0;
};

/// Sorts a file of variable-length records on disk by natural merging, with two
/// auxiliary files in its directory (without names, where the system allows it) and
/// at most four records in memory.
///
/// What a record is, only the callbacks know. Records travel as untyped pointers:
/// `read` and `readCurrent` make them, `free` releases them. The order of equal
/// records follows from the algorithm; the sort is not stable.
class NaturalMergeSort {
public:
    /// Whether `a op b` holds, by a `CompareOperator`.
    using Compare = bool (*)(void* a, void* b, unsigned op, bool caseSensitive);
    /// Reads the next record; 0 on failure.
    using Read = int (*)(AbstractFile* file, void** record);
    /// Appends a record; 0 on failure.
    using Write = int (*)(AbstractFile* file, void* record);
    /// Reads the next record and goes back to where it begins.
    using ReadCurrent = bool (*)(AbstractFile* file, void** record);
    using Free = void (*)(void* record);

    /// With any null callback the sorter is unusable: every sort fails.
    NaturalMergeSort(Compare compare, Read read, Write write, ReadCurrent readCurrent, Free free);

    /// Tries this way first; the callbacks remain for what it does not take.
    void setEncodedMerge(std::unique_ptr<EncodedMerge> encoded) { encoded_ = std::move(encoded); }

    /// Makes the auxiliary files elsewhere than beside the file.
    void setDirectory(std::string directory) { directory_ = std::move(directory); }

    /// `direction` is an `FsSortDirection`. True only if the sort ran to its end.
    /// When the auxiliary files could not be made or written, the file still holds
    /// all its records. The file must not be open anywhere else.
    bool sort(const wchar_t* fileName, unsigned direction, bool caseSensitive);

private:
    struct Callbacks {
        Compare compare;
        Read read;
        Write write;
        ReadCurrent readCurrent;
        Free free;
    };
    using Record = std::unique_ptr<void, Free>;

    bool chooseOperators(unsigned direction);
    bool sortOpened(const wchar_t* fileName, LinuxMmFile& source);
    bool sortByCallbacks(SortFiles files);
    bool pass(SortFiles files, unsigned& runs);

    Record none() const { return {nullptr, callbacks_.free}; }
    Record next(AbstractFile& file) const;
    Record peek(AbstractFile& file) const;
    bool holds(const Record& a, unsigned op, const Record& b) const;
    bool copy(AbstractFile& source, AbstractFile& target, Record& following);
    void copyrun(AbstractFile& source, AbstractFile& target, Record& last);
    void distribute(AbstractFile& source, AbstractFile& first, AbstractFile& second);
    void mergerun(AbstractFile& first, AbstractFile& second, AbstractFile& target);
    unsigned merge(AbstractFile& first, AbstractFile& second, AbstractFile& target);

    Callbacks callbacks_{};
    unsigned runOperator_ = 0;
    unsigned mergeOperator_ = 0;
    bool caseSensitive_ = true;
    bool writeFailed_ = false;
    std::string directory_;
    std::unique_ptr<EncodedMerge> encoded_;
};

}  // namespace fscanner

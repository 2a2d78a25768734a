#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/common/fields.h"
#include "fscanner/engine/file_fields.h"
#include "fscanner/expr/criteria.h"
#include "fscanner/store/recordset.h"
#include "fscanner/store/table.h"

struct stat;

namespace fscanner {

/// The name of a directory's number.
extern const wchar_t* field_ID;

/// Positions of the fields in the two tables.
enum FilesField : unsigned { FILES_FILENAME, FILES_ATTR, FILES_SIZE, FILES_PATHID };
enum DirectoriesField : unsigned {
    DIRECTORIES_ID,
    DIRECTORIES_PATHNAME,
    DIRECTORIES_PARENTID,
    DIRECTORIES_CREATIONTIME
};

/// A file's size and attributes as the cache has them: 0 where the system did not tell.
struct FileFacts {
    unsigned long long size = 0;
    unsigned attributes = 0;

    /// Nothing where the size is too large for a host without large files.
    static std::optional<FileFacts> of(const struct stat& info);
    static FileFacts of(const RecordSet& file);
    void writeTo(RecordSet& file) const;
    bool operator==(const FileFacts&) const = default;
};

/// Where a cache keeps its tables, and how.
struct TablePlace {
    const std::wstring& directory;
    bool compressed;
    SumsFile* sums;
};

/// The fields of one of the two tables, and those of them that have an index, in the order of
/// making.
struct TableKind {
    std::array<FieldKind, 4> fields;
    std::vector<const wchar_t*> indexed;

    static const TableKind& files();
    static const TableKind& directories();

    /// Makes the table `name` of this kind, open, with its indexes. `step` is the operation's
    /// name, for the log. Null when that fails.
    std::unique_ptr<FS_Table> create(const std::wstring& name, const TablePlace& place,
                                     const char* step) const;
    /// The names of the files that the table `name` can have.
    std::vector<std::wstring> fileNames(const std::wstring& name) const;
    /// Null when it cannot be opened or is of another kind.
    std::unique_ptr<FS_Table> open(const std::wstring& name, const TablePlace& place) const;

private:
    bool addTo(FS_Table& table) const;
    void addIndexes(FS_Table& table, const std::wstring& name) const;
    bool fits(FS_Table& table) const;
};

/// Whether the files of a cache can be looked up by this field.
bool isIndexedFileField(std::wstring_view name);

/// The evaluators that lookups in the tables go through, with their variables.
///
/// A lookup states the field, the value and by that the index to use; the record set
/// that is given the evaluator walks that index's chain. All are compiled when they
/// are made: while the criteria command "path" is registered, `pathid` could not be
/// read.
class CacheLookups {
public:
    CacheLookups();

    /// False when one of them did not compile.
    bool valid() const { return valid_; }

    bool byId(RecordSet& directories, unsigned id);
    bool byParentId(RecordSet& directories, unsigned id);
    bool byPathId(RecordSet& files, unsigned id);
    /// Candidates for a directory name; the caller compares the name again.
    bool byPathName(RecordSet& directories, const std::wstring& name, bool caseFlag);

private:
    bool lookUp(RecordSet& records, CriteriaEvaluator& evaluator, const wchar_t* field,
                Int32Field& variable, unsigned value);

    Fields variables_;
    Int32Field* id_ = nullptr;
    Int32Field* pathId_ = nullptr;
    Int32Field* parentId_ = nullptr;
    TextField* pathName_ = nullptr;
    Fields fields_;  // one of every name that the criteria read, for compiling them
    std::unique_ptr<CriteriaEvaluator> ceByPathId_;
    std::unique_ptr<CriteriaEvaluator> ceByParentId_;
    std::unique_ptr<CriteriaEvaluator> ceById_;
    std::unique_ptr<CriteriaEvaluator> ceByPathName_;
    std::unique_ptr<CriteriaEvaluator> ceAnyPathName_;  // for names that are patterns
    ExpValue hashInfo_;
    bool valid_ = false;
};

}  // namespace fscanner

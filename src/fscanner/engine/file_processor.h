#pragma once

#include <memory>

#include "fscanner/common/fields.h"
#include "fscanner/expr/token.h"
#include "fscanner/filetype/filetypehelper.h"
#include "fscanner/store/record_filter.h"

namespace fscanner {

class FsFileInfo;

/// The criteria command "path" of a direct scan: the full path of the current
/// file, whatever its arguments.
class fpPathCommand : public BinaryCmd {
public:
    /// The file that the next evaluation is about; not owned, may be null.
    void setFsFileInfo(const FsFileInfo* file) { file_ = file; }
    int execute(const ExpValue& directoryId, const ExpValue& name, ExpValue& result) override;

private:
    const FsFileInfo* file_ = nullptr;
};

/// The criteria command "type": whether the file named by the first argument is of
/// the type that the second names.
class TypeCommand : public BinaryCmd {
public:
    /// `owner` begins the log line about bad arguments.
    explicit TypeCommand(const char* owner) : owner_(owner) {}
    int execute(const ExpValue& file, const ExpValue& type, ExpValue& result) override;

private:
    const char* owner_;
    FileTypeChecker checker_;
};

class fpTypeCommand : public TypeCommand {
public:
    fpTypeCommand() : TypeCommand("fpTypeCommand") {}
};

/// A criteria bound to the fields of one file: tests file after file.
///
/// The criteria is compiled by the constructor; one that does not compile matches
/// nothing, a null or empty one everything. Lives as long as the scan: while it
/// does, the two commands are registered process-wide. A query's criteria is read by the
/// rules of a search.
class FileProcessor {
public:
    FileProcessor(const wchar_t* criteria, bool caseSensitive,
                  CriteriaRules rules = CriteriaRules::plain);
    FileProcessor(const FileProcessor&) = delete;
    FileProcessor& operator=(const FileProcessor&) = delete;
    ~FileProcessor();

    /// True exactly when the criteria gives 1 for this record. A null short name
    /// leaves the field as it is. Size and attributes are asked of the record only
    /// when the criteria reads them.
    bool satisfyCriteria(const FsFileInfo& file, const wchar_t* shortFileName);
    /// Whether the criteria certainly rejects a file of this name, or of this size, whatever
    /// its other fields are. Asked before a record is made. The name is in the bytes of the
    /// directory.
    bool dismissesName(const StoredText& name) const;
    bool dismissesSize(unsigned long long size) const;
    bool mayDismissSize() const { return needsInfo_ && !filter_.isEmpty(); }

    /// Whether the last test failed on that record: neither match nor mismatch.
    bool undecided() const { return undecided_; }
    bool compiles() const { return compiles_; }
    /// Whether the criteria reads the size or the attributes.
    bool needsInfo() const { return needsInfo_; }

private:
    bool registerCommands();

    // In this order: the evaluator refers to the members above it.
    Fields fields_;
    TextField* name_;
    TextField* shortName_;
    Int64Field* size_;
    Int32Field* attributes_;
    fpPathCommand pathCommand_;
    fpTypeCommand typeCommand_;
    std::unique_ptr<CriteriaEvaluator> evaluator_;  // null: everything matches
    RecordFilter filter_;
    bool caseSensitive_;
    bool bytesAreCharacters_;  // ASCII bytes of names are never parts of other characters
    bool compiles_ = true;
    bool needsInfo_ = false;
    bool undecided_ = false;
};

}  // namespace fscanner

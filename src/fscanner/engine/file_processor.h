#pragma once

#include <memory>

#include "fscanner/common/fields.h"
#include "fscanner/expr/conditions.h"
#include "fscanner/expr/criteria.h"
#include "fscanner/filetype/filetypehelper.h"

namespace fscanner {

class FsFileInfo;
class WalkEntry;

/// The criteria command "path" of a direct scan. Its result is the full path of the current file;
/// the arguments are ignored.
class fpPathCommand : public BinaryCmd {
public:
    /// Sets the file of the next evaluation. Not owned; may be null.
    void setFsFileInfo(const FsFileInfo* file) { file_ = file; }
    int execute(const ExpValue& directoryId, const ExpValue& name, ExpValue& result) override;

private:
    const FsFileInfo* file_ = nullptr;
};

/// The criteria command "type": 1 if the file named by the first argument has the type named by
/// the second, else 0.
class TypeCommand : public BinaryCmd {
public:
    /// `owner` is the prefix of the log line about invalid arguments; static text.
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

/// Tests files against a criteria, one after the other.
///
/// The constructor compiles the criteria. A criteria that does not compile matches no file; a null
/// or empty criteria matches every file. The object lives as long as the scan. During that time
/// its two commands are in the thread's list of commands. Queries use `CriteriaRules::search`.
class FileProcessor {
public:
    FileProcessor(const wchar_t* criteria, bool caseSensitive,
                  CriteriaRules rules = CriteriaRules::plain);
    FileProcessor(const FileProcessor&) = delete;
    FileProcessor& operator=(const FileProcessor&) = delete;
    ~FileProcessor();

    /// Whether the criteria gives 1 for this record. With a null short name, that field keeps
    /// its value. Size and attributes are read from the record only if the criteria needs them.
    /// If the record has none, a search cannot decide; by the plain rules they are 0.
    bool satisfyCriteria(const FsFileInfo& file, const wchar_t* shortFileName);
    /// Whether a file surely does not satisfy the criteria: told before a record is made, from
    /// the bytes of its name and, where that is not enough, from its size.
    bool rejects(WalkEntry& entry) const;

    /// Whether the criteria could not be evaluated on the last record. It did not match.
    bool undecided() const { return undecided_; }
    bool compiles() const { return compiles_; }
    /// Whether the criteria reads the size or the attributes.
    bool needsInfo() const { return needsInfo_; }
    /// Whether it reads these alone, and neither names nor commands.
    bool needsInfoAlone() const;

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
    Conditions conditions_;
    bool searches_;  // by `CriteriaRules::search`
    bool caseSensitive_;
    bool bytesAreCharacters_;  // ASCII bytes of names are never parts of other characters
    bool compiles_ = true;
    bool needsInfo_ = false;
    bool undecided_ = false;
};

}  // namespace fscanner

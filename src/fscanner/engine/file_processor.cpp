#include "fscanner/engine/file_processor.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <vector>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/utf8.h"
#include "fscanner/engine/file_fields.h"
#include "fscanner/engine/walk.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/no_throw.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

namespace {

/// False if the file may exist but cannot be examined.
bool mayBeExamined(const wchar_t* path) {
    struct stat info {};
    const int error = examineFile(toMultibyte(path), info);
    return error == 0 || error == ENOENT || error == ENOTDIR;
}

/// Reads a walked entry's name and size. The size is asked of the system only where a
/// condition needs it.
class EntryReader {
public:
    EntryReader(WalkEntry& entry, bool bytesAreCharacters)
        : entry_(entry), bytesAreCharacters_(bytesAreCharacters) {}

    bool read(unsigned field, Operand& operand) {
        operand = {};
        if (field == file_fields::NAME) return readName(operand.text);
        return field == file_fields::SIZE && readSize(operand.number);
    }

private:
    /// Where ASCII bytes may be halves of characters, they tell nothing beside others.
    bool readName(StoredText& name) const {
        name = entry_.storedName();
        return bytesAreCharacters_ || !stored_text::examine(name).foreign;
    }
    /// A size that is too large for a host counts as unknown.
    bool readSize(long long& size) {
        const struct stat* info = entry_.info();
        if (info) size = info->st_size;
        return info && (size <= INT_MAX || FsFileInfo::getLargeFileSupport());
    }

    WalkEntry& entry_;
    bool bytesAreCharacters_;
};

}  // namespace

int fpPathCommand::execute(const ExpValue&, const ExpValue&, ExpValue& result) {
    resetExpValue(STRING, result);
    if (!file_) return 0;
    if (!file_->getPath() || !file_->getName()) return 1;
    result.setStringValue(joinPath(file_->getPath(), file_->getName()).c_str());
    return 0;
}

int TypeCommand::execute(const ExpValue& file, const ExpValue& type, ExpValue& result) {
    if (file.getType() != STRING || type.getType() != STRING) {
        debug("%s::execute - args not valid!\n", owner_);
        return 1;
    }
    StringList<wchar_t> wanted;
    wanted.insert(type.getStringValue());
    resetExpValue(NUMERIC, result);
    // If the type cannot be found out, the result is an error: the file is undecided, because
    // its type may be the wanted one.
    const bool matches =
        !fileProgram().path.empty() && checker_.check(file.getStringValue(), wanted);
    fileProgramMissed() |= fileProgram().path.empty();
    result.setNumericValue(matches ? 1 : 0);
    const bool told = matches || mayBeExamined(file.getStringValue());
    return fileProgramMissed() || !told ? 1 : 0;
}

FileProcessor::FileProcessor(const wchar_t* criteria, bool caseSensitive, CriteriaRules rules)
    : fields_(file_fields::forCriteria()),
      name_(fields_.as<TextField>(file_fields::NAME)),
      shortName_(fields_.as<TextField>(file_fields::SHORT_NAME)),
      size_(fields_.as<Int64Field>(file_fields::SIZE)),
      attributes_(fields_.as<Int32Field>(file_fields::ATTRIBUTES)),
      searches_(rules == CriteriaRules::search),
      caseSensitive_(caseSensitive),
      bytesAreCharacters_(asciiBytesAreCharacters()) {
    if (!criteria || !*criteria) return;
    evaluator_ = std::make_unique<CriteriaEvaluator>(criteria, rules);
    compiles_ = registerCommands() && evaluator_->setFields(&fields_) && evaluator_->compile();
    if (!compiles_)
        debug("FileProcessor::FileProcessor - criteria '%ls' does not compile!\n", criteria);
    needsInfo_ = evaluator_->readsField(file_fields::kSize.name) ||
                 evaluator_->readsField(file_fields::kAttributes.name);
    if (compiles_)
        conditions_ =
            Conditions(evaluator_->tree(), fields_, caseSensitive, Conditions::First::texts);
}

bool FileProcessor::needsInfoAlone() const {
    if (!needsInfo_ || evaluator_->usesCommands()) return false;
    const auto reads = [this](const FieldKind& field) {
        return evaluator_->readsField(field.name);
    };
    return !reads(file_fields::kName) && !reads(file_fields::kShortName);
}

// The list of commands points to members of this object. A command left in it would also hide
// variables whose names begin with the command's name.
FileProcessor::~FileProcessor() {
    if (evaluator_) clearCommands();
}

bool FileProcessor::registerCommands() {
    return evaluator_->addCmd(L"path", STRING, NUMERIC, STRING, &pathCommand_) &&
           evaluator_->addCmd(L"type", NUMERIC, STRING, STRING, &typeCommand_);
}

bool FileProcessor::rejects(WalkEntry& entry) const {
    if (conditions_.isEmpty()) return false;
    return conditions_.judge(EntryReader(entry, bytesAreCharacters_)) == Verdict::noMatch;
}

bool FileProcessor::satisfyCriteria(const FsFileInfo& file, const wchar_t* shortFileName) {
    undecided_ = false;
    if (!compiles_) return false;
    if (!evaluator_) return true;
    name_->value(file.getName());
    if (shortFileName) shortName_->value(shortFileName);
    if (needsInfo_) {
        // Not examined again by its path: another file may have that path by now.
        const bool known = !file.hasError();
        undecided_ = !known && searches_;
        if (undecided_) return false;
        size_->value(known ? file.getSize() : 0);
        attributes_->value(known ? file.getAttr() : 0);
    }
    pathCommand_.setFsFileInfo(&file);
    const int verdict = evaluator_->check(caseSensitive_);
    undecided_ = verdict == -1 && evaluator_->failedOnRecord();
    return verdict == 1;
}

// ---- Hosts' own records -----------------------------------------------------

// While a filter compiles or tests, its commands replace those of the process: a host may use
// a filter in the middle of a scan that has commands of its own.
struct FsRecordFilter::State {
    std::vector<CmdToken> commands;
    std::unique_ptr<FileProcessor> processor;

    bool compile(const wchar_t* criteria, bool caseSensitive) {
        const CommandListShelter shelter(commands);
        processor = std::make_unique<FileProcessor>(criteria, caseSensitive, CriteriaRules::search);
        return processor->compiles();
    }
    bool matches(const FsFileInfo& record) {
        const CommandListShelter shelter(commands);
        return processor->satisfyCriteria(record, nullptr);
    }
    ~State() {
        const CommandListShelter shelter(commands);
        processor.reset();
    }
};

FsRecordFilter::FsRecordFilter() : state_(std::make_unique<State>()) {}
FsRecordFilter::~FsRecordFilter() = default;

std::unique_ptr<FsRecordFilter> FsRecordFilter::create(const wchar_t* criteria,
                                                       bool caseSensitive) {
    return noThrow("FsRecordFilter::create", [&] {
        std::unique_ptr<FsRecordFilter> filter(new FsRecordFilter);
        if (!filter->state_->compile(criteria, caseSensitive)) filter.reset();
        return filter;
    });
}

bool FsRecordFilter::matches(const FsFileInfo& record) {
    return noThrow("FsRecordFilter::matches", [&] { return state_->matches(record); });
}

bool FsRecordFilter::undecided() const {
    return state_->processor->undecided();
}

}  // namespace fscanner

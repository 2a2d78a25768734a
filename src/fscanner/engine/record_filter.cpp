#include <exception>
#include <utility>
#include <vector>

#include "fscanner/engine/file_processor.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscanner {

namespace {

// Puts a command list in the place of the process-wide one, and that one back: a
// filter may be made and asked while a scan runs with commands of its own.
class CommandsInPlace {
public:
    explicit CommandsInPlace(std::vector<CmdToken>& commands) : commands_(commands) {
        std::swap(cmdTokenList, commands_);
    }
    CommandsInPlace(const CommandsInPlace&) = delete;
    CommandsInPlace& operator=(const CommandsInPlace&) = delete;
    ~CommandsInPlace() { std::swap(cmdTokenList, commands_); }

private:
    std::vector<CmdToken>& commands_;
};

}  // namespace

struct FsRecordFilter::State {
    std::vector<CmdToken> commands;
    std::unique_ptr<FileProcessor> processor;

    bool compile(const wchar_t* criteria, bool caseSensitive) {
        const CommandsInPlace inPlace(commands);
        processor = std::make_unique<FileProcessor>(criteria, caseSensitive);
        return processor->compiles();
    }
    bool matches(const FsFileInfo& record) {
        const CommandsInPlace inPlace(commands);
        return processor->satisfyCriteria(record, nullptr);
    }
    ~State() {
        const CommandsInPlace inPlace(commands);
        processor.reset();
    }
};

FsRecordFilter::FsRecordFilter() : state_(std::make_unique<State>()) {}
FsRecordFilter::~FsRecordFilter() = default;

std::unique_ptr<FsRecordFilter> FsRecordFilter::create(const wchar_t* criteria,
                                                       bool caseSensitive) {
    try {
        std::unique_ptr<FsRecordFilter> filter(new FsRecordFilter);
        if (!filter->state_->compile(criteria, caseSensitive)) return nullptr;
        return filter;
    } catch (const std::exception&) {
        return nullptr;
    }
}

bool FsRecordFilter::matches(const FsFileInfo& record) {
    try {
        return state_->matches(record);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace fscanner

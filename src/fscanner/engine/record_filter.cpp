#include <vector>

#include "fscanner/engine/file_processor.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/wall.h"

namespace fscanner {

// The commands of a filter take the place of the process's own for as long as it works:
// it may be made and asked while a scan runs with commands of its own.
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
    return behindWall("FsRecordFilter::create", [&] {
        std::unique_ptr<FsRecordFilter> filter(new FsRecordFilter);
        if (!filter->state_->compile(criteria, caseSensitive)) filter.reset();
        return filter;
    });
}

bool FsRecordFilter::matches(const FsFileInfo& record) {
    return behindWall("FsRecordFilter::matches", [&] { return state_->matches(record); });
}

bool FsRecordFilter::undecided() const {
    return state_->processor->undecided();
}

}  // namespace fscanner

#pragma once

#include <climits>
#include <string>
#include <vector>

#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

/// Keeps what queries tell their observer during its lifetime, and may stop them.
class Listener : public FsScanObserver {
public:
    struct Skip {
        std::string directory;
        FsSkipReason reason;
        int error;
    };

    /// `stopAt`: says stop at the n-th question of a query whether to go on.
    explicit Listener(int stopAt = INT_MAX) : stopAt_(stopAt), previous_(fsSetScanObserver(this)) {}
    Listener(Listener&&) = delete;
    ~Listener() override { fsSetScanObserver(previous_); }

    bool progress(const FsScanProgress& at) override {
        files = at.files;
        expected = at.expectedDirectories;
        return ++questions < stopAt_;
    }
    void skipped(const wchar_t* directory, FsSkipReason reason, int error) override {
        skips.push_back({toMultibyte(directory), reason, error});
    }
    void undecided(const FsFileInfo& file) override {
        undecidedPaths.push_back(toMultibyte(std::wstring(file.getPath()) + file.getName()));
    }
    void finished(const FsScanProgress& totals) override {
        ++walks;
        directories += totals.directories;
    }

    std::vector<std::string> skippedFor(FsSkipReason reason) const {
        std::vector<std::string> paths;
        for (const Skip& skip : skips)
            if (skip.reason == reason) paths.push_back(skip.directory);
        return paths;
    }
    /// Whether a part of the answer may be missing.
    bool toldOfGaps() const {
        return skips.size() > skippedFor(FsSkipReason::otherFileSystem).size();
    }

    std::vector<Skip> skips;
    std::vector<std::string> undecidedPaths;
    int questions = 0;
    unsigned long long files = 0;        ///< at the last question
    unsigned long long expected = 0;     ///< directories, at the last question
    int walks = 0;                       ///< that ended
    unsigned long long directories = 0;  ///< of those

private:
    int stopAt_;
    FsScanObserver* previous_;
};

}  // namespace fscanner

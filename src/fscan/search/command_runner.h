#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/options/options.h"
#include "fscan/search/matches.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

class Output;
struct Search;

/// Checks matches again before a command gets them: since they were found, a file or a directory
/// on its path may have been replaced.
class MatchCheck {
public:
    MatchCheck(const Search& search, FileExaminer& examiner);

    /// Whether the path, as a command would follow it, still leads to a file that the search
    /// asks for. If not, or if that is unknown, the match is noted as left out.
    bool holds(const Match& match);
    /// A descriptor of the directory of the match that was checked last.
    int directory() { return examiner_.directory(*directory_); }

private:
    FileExaminer::Found examine(const Match& match);
    bool isWanted(const char* name, const struct stat& info);

    const Search& search_;
    FileExaminer& examiner_;
    MatchPlace place_;
    const std::wstring* directory_ = nullptr;
    std::unique_ptr<fscanner::FsRecordFilter>
        where_;  // null where no field of the criteria can change
    fscanner::FsFileInfo record_;
};

/// Runs a command, without a shell, for each match or for many at a time. "{}" in its
/// words stands for the path; without "{}" the path is added at the end.
class CommandRunner : public MatchConsumer {
public:
    /// Null, with a message, where it could run a program from a directory of the files.
    static std::unique_ptr<CommandRunner> create(const Search& search, FileExaminer& examiner,
                                                 Output& out);

    /// Runs the last batch, and tells how many runs failed.
    void finish() override;
    /// Whether a command could not be started, ended with a status other than 0, or could not
    /// be given a path.
    ExitStatus status() const override {
        const bool failed = notRun_ || failures_ > 0 || leftOut_ > 0;
        return failed ? ExitStatus::commandFailed : ExitStatus::found;
    }

private:
    using Words = std::vector<std::string>;

    CommandRunner(const Search& search, FileExaminer& examiner, Output& out);

    bool admit(const Match& match) override;
    bool consume(const Match& match) override;
    bool hasRoom(const std::string& path) const;
    bool fits(const Words& words, std::size_t room) const;
    bool leaveOut(const std::string& path);
    bool runBatch();
    bool run(const Words& words);

    MatchCheck check_;
    Words words_;
    std::string program_;
    Output& out_;
    CommandUse use_;
    bool stopped_ = false;  // a batch wants no more matches
    Words waiting_;         // paths of a batch
    std::size_t waitingBytes_ = 0;
    std::size_t room_;         // for the paths among the arguments of a command
    std::size_t allRoom_ = 0;  // for all of them
    std::size_t wordRoom_;     // for one of them
    unsigned long long runs_ = 0;
    unsigned long long failures_ = 0;
    unsigned long long leftOut_ = 0;
    bool notRun_ = false;  // the last one could not be started
};

}  // namespace fscan

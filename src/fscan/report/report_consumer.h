#pragma once

#include <string>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/sum/file_count.h"
#include "fscan/sum/grouping.h"
#include "fscan/sum/sums.h"

namespace fscan {

struct Options;

/// Adds the matches up in all groups, and writes a page that shows the sums.
class ReportConsumer : public MatchConsumer {
public:
    /// `roots` and `cached` are as for sums.
    ReportConsumer(const Options& options, std::vector<std::string> roots, bool cached);

    bool lacks(const FileDetails& file) const override;
    bool tellsTotals() const override { return true; }
    void missed(unsigned long long directories) override { missed_ = directories; }
    void finish() override;
    ExitStatus status() const override { return failed_ ? ExitStatus::failure : ExitStatus::found; }

private:
    struct Groups {
        const char* title;
        Grouping grouping;
        Sums sums;
    };
    struct File {
        unsigned long long bytes;
        std::string path;
    };

    bool admit(const Match& match) override { return count_.admits(*match.details); }
    bool consume(const Match& match) override;
    void keepLargest(const Match& match, unsigned long long bytes);
    std::string page() const;
    std::string data() const;
    std::string missingText() const;

    const Options& options_;
    std::vector<std::string> roots_;
    FileCount count_;
    DirectorySums directories_;
    std::vector<Groups> groups_;
    std::vector<File> largest_;  // a heap with the smallest on top
    Sum total_;
    unsigned long long missed_ = 0;
    bool failed_ = false;
};

}  // namespace fscan

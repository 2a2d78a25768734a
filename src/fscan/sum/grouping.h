#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/options/options.h"
#include "fscan/sum/sums.h"

namespace fscan {

/// Names the group of a match, for all groups but directories.
class Grouping {
public:
    explicit Grouping(SumBy by);

    /// Valid until the next call.
    std::string_view groupOf(const Match& match, const FileDetails& file);
    /// Whether it must know more than the size and the attributes to name the group.
    bool lacks(const FileDetails& file) const;

private:
    std::string_view extensionOf(std::string_view name);
    std::string_view ownerOf(unsigned user);
    std::string_view ageOf(long modified) const;

    SumBy by_;
    long now_;
    long midnight_;
    std::string text_;
    std::unordered_map<unsigned, std::string> owners_;
};

/// Sums of directories, each with all below it, down to a depth below the PATHs.
class DirectorySums {
public:
    /// `roots`: the PATHs as the paths of matches begin. With more than one, each has a sum.
    DirectorySums(std::vector<std::string> roots, unsigned depth);

    void add(const Match& match, unsigned long long bytes);
    const Sums& sums() const { return sums_; }

private:
    void enter(std::string_view directory);

    std::vector<std::string> roots_;  // the longest first
    unsigned depth_;
    Sums sums_;
    bool entered_ = false;
    std::string directory_;    // that of the last match
    std::vector<Sum*> above_;  // the sums that it counts in
};

/// The PATH without slashes at its end, as it stands before the "/" of a match's path.
std::string_view withoutSlashes(std::string_view path);

/// The PATH that the directory is or lies below; empty where there is none.
std::string_view rootOf(std::string_view directory, const std::vector<std::string>& longestFirst);

}  // namespace fscan

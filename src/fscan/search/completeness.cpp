#include "fscan/search/completeness.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/output/output.h"
#include "fscan/text/json_text.h"
#include "fscan/text/values.h"

namespace fscan {

namespace {

double seconds(const Outcome& outcome) {
    return std::chrono::duration<double>(outcome.time).count();
}

std::string counted(unsigned long long count, const char* one, const char* many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

unsigned greatestAge(const Completeness& search) {
    unsigned age = 0;
    for (const Completeness::Cached& part : search.cached) age = std::max(age, part.ageSeconds);
    return age;
}

std::string source(const Completeness& search) {
    if (search.cached.empty()) return search.walks == 0 ? "nothing" : "a scan";
    const std::string age = durationText(greatestAge(search));
    return fmt::format("the cache ({} old){}", age, search.walks == 0 ? "" : " and a scan");
}

/// "2 directories could not be read; --errors names them", of those that were not named yet, or
/// nothing.
std::string unread(const Completeness& search) {
    const auto count = std::count_if(search.skipped.begin(), search.skipped.end(),
                                     [](const Completeness::Skipped& one) { return !one.named; });
    if (count == 0) return "";
    return fmt::format("{} could not be read; --errors names {}",
                       counted(static_cast<unsigned long long>(count), "directory", "directories"),
                       count == 1 ? "it" : "them");
}

/// A text that counts everything that was left out; empty where nothing was.
std::string leftOut(const Completeness& search, const Outcome& outcome) {
    std::string text = unread(search);
    const auto add = [&text](const std::string& more) {
        text += (text.empty() ? "" : "; ") + more;
    };
    if (search.undecided != 0)
        add("the criteria could not be decided for " + counted(search.undecided, "file", "files"));
    if (outcome.gone != 0)
        add(fmt::format("{} gone since the search found {}",
                        counted(outcome.gone, "file is", "files are"),
                        outcome.gone == 1 ? "it" : "them"));
    if (outcome.changed != 0)
        add(fmt::format("{} changed since the search found {}, and {} left out",
                        counted(outcome.changed, "file has", "files have"),
                        outcome.changed == 1 ? "it" : "them",
                        outcome.changed == 1 ? "was" : "were"));
    if (outcome.unexamined != 0)
        add(counted(outcome.unexamined, "file", "files") + " could not be examined");
    return text;
}

/// "12 files in 0.05 s, from the cache (3 min old); 2 directories could not be read".
std::string closingLine(const Completeness& search, const Outcome& outcome) {
    std::string line =
        fmt::format("{} in {:.2f} s, from {}", counted(outcome.matches, "file", "files"),
                    seconds(outcome), source(search));
    if (!search.timedOut.empty()) line += "; time ran out";
    if (outcome.interrupted) line += "; interrupted";
    if (const std::string left = leftOut(search, outcome); !left.empty()) line += "; " + left;
    return line;
}

std::string statistics(const Completeness& search, const Outcome& outcome) {
    return fmt::format(
        "matches:  {}\nwalked:   {} files, {} directories\ntime:     {:.3f} s\nfrom:     {}\n",
        outcome.matches, search.files, search.directories, seconds(outcome), source(search));
}

const char* reasonText(fscanner::FsSkipReason reason) {
    switch (reason) {
        case fscanner::FsSkipReason::denied:
            return "denied";
        case fscanner::FsSkipReason::vanished:
            return "vanished";
        case fscanner::FsSkipReason::tooLong:
            return "too long";
        default:
            return "failed";
    }
}

/// Whether everything was searched; of cached trees, when they were read from disk.
bool complete(const Completeness& search, const Outcome& outcome) {
    return search.skipped.empty() && search.timedOut.empty() && search.undecided == 0 &&
           outcome.foundAll() && outcome.changed == 0 && outcome.unexamined == 0 && !outcome.cut &&
           !outcome.interrupted;
}

Json summary(const Completeness& search, const Outcome& outcome) {
    Json object;
    object["matches"] = outcome.matches;
    object["complete"] = complete(search, outcome);
    // As a shell reports it.
    object["status"] = outcome.signal == 0 ? exitCode(outcome.status) : 128 + outcome.signal;
    object["seconds"] = seconds(outcome);
    object["scanned"] = {
        {"walks", search.walks}, {"files", search.files}, {"directories", search.directories}};
    object["cached"] = Json::array();
    for (const Completeness::Cached& part : search.cached) {
        Json one;
        putBytes(one, "path", part.path);
        one["ageSeconds"] = part.ageSeconds;
        object["cached"].push_back(one);
    }
    object["skipped"] = Json::array();
    for (const Completeness::Skipped& directory : search.skipped) {
        Json one;
        putBytes(one, "path", directory.path);
        one["reason"] = reasonText(directory.reason);
        one["error"] = std::strerror(directory.error);
        object["skipped"].push_back(one);
    }
    object["gone"] = outcome.gone;
    object["changed"] = outcome.changed;
    object["unexamined"] = outcome.unexamined;
    object["timedOut"] = Json::array();
    for (const std::string& path : search.timedOut) object["timedOut"].push_back(path);
    object["undecided"] = search.undecided;
    return object;
}

void writeError(const std::string& text) {
    Output err(STDERR_FILENO);
    err.write(text);
    err.flush();
}

/// False, with a message, where the file cannot be written.
bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (file) return true;
    complain(path, errno);
    return false;
}

}  // namespace

void Completeness::addWalk(const fscanner::FsScanProgress& totals) {
    ++walks;
    files += totals.files;
    directories += totals.directories;
}

bool Completeness::systemFailed() const {
    return std::any_of(skipped.begin(), skipped.end(), [](const Skipped& one) {
        return one.reason == fscanner::FsSkipReason::failed;
    });
}

void tell(const Options& options, const Completeness& search, const Outcome& outcome) {
    const bool watched = isatty(STDERR_FILENO) == 1 && !options.quiet;
    if (options.statistics) {
        writeError(statistics(search, outcome));
    } else if (watched) {
        writeError(closingLine(search, outcome) + "\n");
    } else if (const std::string left = leftOut(search, outcome); !left.empty() && !options.quiet) {
        complain(left);
    }
}

Summary::Summary(const Options& options)
    : file_(options.summaryFile), wanted_(options.summary || options.summaryFile) {
    if (file_) writable_ = writeFile(*file_, "");
}

void Summary::write(const Completeness& search, const Outcome& outcome) {
    if (!wanted_) return;
    written_ = true;
    const std::string text = jsonText(summary(search, outcome)) + "\n";
    if (file_)
        writable_ = writeFile(*file_, text);
    else
        writeError(text);
}

}  // namespace fscan

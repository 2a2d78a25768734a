#include "fscan/search/completeness.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/output/progress_line.h"
#include "fscan/process/interruption.h"
#include "fscan/query/filters.h"
#include "fscan/query/search_roots.h"
#include "fscan/search/matches.h"
#include "fscan/text/json_text.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

double seconds(const Outcome& outcome) {
    return std::chrono::duration<double>(outcome.time).count();
}

std::string counted(unsigned long long count, const char* one, const char* many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

/// The age of the oldest part of those for which `counts`, as "3 min"; empty if there is none.
template <typename Counts>
std::string greatestAge(const Completeness& search, Counts counts) {
    std::optional<unsigned> age;
    for (const Completeness::Cached& part : search.cached)
        if (counts(part)) age = std::max(age.value_or(0), part.ageSeconds);
    return age ? durationText(*age) : "";
}

/// "3 min old" of parts that were not compared with the disk, "checked" where all were.
std::string cacheState(const Completeness& search) {
    const auto unchecked = [](const auto& part) { return !part.check; };
    if (const std::string age = greatestAge(search, unchecked); !age.empty()) return age + " old";
    const auto storedFacts = [](const auto& part) { return part.check->storedFacts; };
    const std::string age = greatestAge(search, storedFacts);
    const bool watched = std::all_of(search.cached.begin(), search.cached.end(),
                                     [](const auto& part) { return part.check->watched; });
    const char* const state = watched ? "watched" : "checked";
    return age.empty() ? state : fmt::format("{}; sizes are up to {} old", state, age);
}

std::string source(const Completeness& search) {
    if (search.cached.empty()) return search.walks == 0 ? "nothing" : "a scan";
    return fmt::format("the cache ({}){}", cacheState(search),
                       search.walks == 0 ? "" : " and a scan");
}

/// "checked:  64000 directories, 3 read again, 0.080 s", or nothing.
std::string checkLine(const Completeness& search) {
    fscanner::FsVerification sum;
    bool any = false;
    for (const Completeness::Cached& part : search.cached) {
        if (!part.check) continue;
        any = true;
        sum.directories += part.check->directories;
        sum.changed += part.check->changed;
        sum.elapsedMilliseconds += part.check->elapsedMilliseconds;
    }
    if (!any) return "";
    return fmt::format("checked:  {}, {} read again, {:.3f} s\n",
                       counted(sum.directories, "directory", "directories"), sum.changed,
                       sum.elapsedMilliseconds / 1000.0);
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
        "matches:  {}\nwalked:   {} files, {} directories\n{}time:     {:.3f} s\nfrom:     {}\n",
        outcome.matches, search.files, search.directories, checkLine(search), seconds(outcome),
        source(search));
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

/// Null if the part was not compared with the disk.
Json checkOf(const Completeness::Cached& part) {
    if (!part.check) return nullptr;
    return {{"directories", part.check->directories},
            {"readAgain", part.check->changed},
            {"seconds", part.check->elapsedMilliseconds / 1000.0},
            {"storedSizes", part.check->storedFacts},
            {"watched", part.check->watched}};
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
        one["checked"] = checkOf(part);
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
    Output& err = errors();
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

// ---- The observer -----------------------------------------------------------

using fscanner::FsScanProgress;
using fscanner::FsSkipReason;

namespace {

int errorOf(FsSkipReason reason, int error) {
    if (reason == FsSkipReason::tooLong) return ENAMETOOLONG;
    if (error != 0) return error;
    if (reason == FsSkipReason::denied) return EACCES;
    return reason == FsSkipReason::vanished ? ENOENT : EIO;
}

}  // namespace

Watcher::Watcher(const Parts& parts) : parts_(parts), previous_(fsSetScanObserver(this)) {}

void Watcher::expectCaching(bool caching) {
    caching_ = caching;
    cachedBefore_ = search_.cached.size();
    undecidedBefore_ = search_.undecided;
}

void Watcher::forgetCache() {
    search_.cached.resize(cachedBefore_);
    search_.undecided = undecidedBefore_;
}

bool Watcher::progress(const FsScanProgress& progress) {
    parts_.line.show(progress);
    return !Interruption::pending() && (caching_ || !parts_.matches.stopped());
}

void Watcher::finished(const FsScanProgress& totals) {
    parts_.line.erase();
    search_.addWalk(totals);
}

bool Watcher::isRoot(const std::wstring& path) const {
    const auto& roots = parts_.roots.roots;
    return std::any_of(roots.begin(), roots.end(),
                       [&path](const SearchRoot& root) { return root.real == path; });
}

void Watcher::skipped(const wchar_t* directory, FsSkipReason reason, int error) {
    const std::wstring path(withoutFinalSlash(directory));
    if (reason == FsSkipReason::excluded) parts_.excludes.cover(path);  // notes the match
    if (reason == FsSkipReason::excluded || reason == FsSkipReason::otherFileSystem) return;
    if (reason == FsSkipReason::noDrive) return;  // the result of the search tells it
    if (reason == FsSkipReason::cycle) return noteCycle(path);
    const SearchRoot& root = parts_.matches.root();
    if (caching_ ? parts_.excludes.cover(path) : !root.owns(path)) return;
    if (!parts_.matches.enters(directory)) return;
    // A walk for the cache also reports directories of other roots.
    if (!reported_.insert(path).second) return;
    const bool isPath = isRoot(path);
    rootSkipped_ = rootSkipped_ || isPath;
    error = errorOf(reason, error);
    const bool named = isPath || parts_.options.errors;
    search_.skipped.push_back({root.shown(path), reason, error, named});
    if (!named) return;
    parts_.line.erase();
    complain(root.shown(path), error);
}

/// Nothing is missing in the answer: what the link leads to is found without it.
void Watcher::noteCycle(const std::wstring& path) {
    if (!parts_.options.errors) return;
    parts_.line.erase();
    complain(parts_.matches.root().shown(path) + ": a directory that holds it, through a link");
}

/// The criteria could not be evaluated as a whole. If the cause is a wildcard in the file's name,
/// only the name patterns failed, and the rest of the criteria decides.
void Watcher::undecided(const fscanner::FsFileInfo& file) {
    if (!parts_.matches.nameFits(file.getName())) return;
    if (parts_.where == nullptr || parts_.where->matches(file)) {
        parts_.line.erase();
        parts_.matches.add(file);
    } else if (parts_.where->undecided() &&
               parts_.matches.admits(file.getPath(), file.getName(), &file)) {
        noteUndecided(file);
    }
}

void Watcher::noteUndecided(const fscanner::FsFileInfo& file) {
    ++search_.undecided;
    if (!parts_.options.errors) return;
    parts_.line.erase();
    std::string path = parts_.matches.root().shown(withoutFinalSlash(file.getPath()));
    if (!path.ends_with('/')) path += '/';
    complain(path + toBytes(file.getName()) + ": the criteria cannot be decided");
}

bool Watcher::waiting(unsigned elapsedMilliseconds) {
    parts_.line.showWaiting(elapsedMilliseconds);
    return !Interruption::pending();
}

bool Watcher::enters(const wchar_t* directory) {
    return parts_.matches.enters(directory);
}

void Watcher::fromCache(const wchar_t* path, unsigned ageSeconds) {
    const std::wstring_view directory = withoutFinalSlash(path);
    search_.cached.push_back({parts_.matches.root().shown(directory), ageSeconds});
}

void Watcher::verified(const fscanner::FsVerification& verification) {
    search_.cached.back().check = verification;
    search_.cached.back().check->path = nullptr;
}

}  // namespace fscan

/// fscan, the command-line host. It runs one query for each directory to search and prints
/// matches as they are found. options/ reads the command line, query/ makes queries of it,
/// search/ runs them, sort/ sorts the matches and records/ prints them. cache/ has the
/// commands for the cache itself.

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <new>
#include <optional>
#include <string_view>

#include "fscan/cache/cache_commands.h"
#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/process/interruption.h"
#include "fscan/query/query_builder.h"
#include "fscan/query/search_roots.h"
#include "fscan/screen/interactive.h"
#include "fscan/search/search.h"
#include "fscan/text/text.h"
#include "fscan/watch/watch.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

ExitStatus cacheTask(const Options& options, Output& out) {
    switch (options.cacheTask) {
        case CacheTask::check:
            return checkCache(options, out);
        case CacheTask::compact:
            return compactCache(options, out);
        case CacheTask::clear:
            return clearCache(options, out);
        case CacheTask::forget:
            return forgetCachedTree(options, out);
        default:
            return showCacheStatus(options, out);
    }
}

/// Signals wait until the task is done: an interrupted compaction would damage the cache.
ExitStatus runCacheTask(const Options& options, Output& out) {
    const Interruption interruption;
    const ExitStatus status = cacheTask(options, out);
    interruption.endIfPending(out.error() == EPIPE);
    return status;
}

ExitStatus run(int argc, char** argv, Output& out) {
    Options options;
    if (const std::optional<ExitStatus> status = parseOptions(argc, argv, options, out))
        return *status;
    if (options.debugLog && !fscanner::startDebug(options.debugLog->c_str())) {
        complain(fmt::format("{}: the debug log cannot be written", *options.debugLog));
        return ExitStatus::usage;
    }
    if (options.check) return checkCriteria(*options.check, !options.ignoreCase, out);
    if (options.listDrives) return listDrives(options, out);
    if (options.cacheTask == CacheTask::watch) return runWatch(options);
    if (options.cacheTask != CacheTask::none) return runCacheTask(options, out);
    if (options.interactive) return runInteractive(options, out);
    return runSearch(options, out);
}

/// A reader that stops reading is no failure; a full disk is one.
ExitStatus finish(ExitStatus status, Output& out) {
    out.flush();
    if (out.error() == 0 || out.error() == EPIPE) return status;
    complain("standard output", out.error());
    return ExitStatus::failure;
}

/// Ends the process: an exception must not pass through the library, which calls us back,
/// and without memory the search cannot go on.
[[noreturn]] void endWithoutMemory() {
    constexpr std::string_view text = "fscan: out of memory\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    _exit(exitCode(ExitStatus::failure));
}

}  // namespace

}  // namespace fscan

int main(int argc, char** argv) try {
    std::set_new_handler(fscan::endWithoutMemory);
    fscan::guardStandardDescriptors();
    fscan::useUsersLocale();
    fscanner::FsFileInfo::setLargeFileSupport(true);
    fscanner::FsFileInfo::setLongPathSupport(true);
    fscan::Output out(STDOUT_FILENO);
    return exitCode(fscan::finish(fscan::run(argc, argv, out), out));
} catch (const std::exception& error) {
    fscan::complain(error.what());
    return exitCode(fscan::ExitStatus::failure);
}

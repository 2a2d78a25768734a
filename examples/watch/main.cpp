// Keeps the tree of a directory current in the cache of this user, and says how it goes:
//
//     kept DIRECTORY
//
// Searches that use the same cache, `fscan` among them, look at no directory meanwhile.

#include <fscanner/engine/cache_directory.h>
#include <fscanner/engine/cache_watch.h>
#include <fscanner/fs/fs_config.h>
#include <fscanner/fs/fs_loader.h>
#include <fscanner/fs/fs_provider.h>
#include <fscanner/fs/fs_query.h>
#include <fscanner/fs/fs_text.h>
#include <poll.h>

#include <clocale>
#include <cstdio>
#include <memory>
#include <string>

using namespace fscanner;

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    if (argc != 2) return std::fprintf(stderr, "usage: kept DIRECTORY\n"), 2;

    // The monitor of everybody; root may load monitor_fanotify.
    FsConfig_TAV settings;
    std::unique_ptr<FsMonitor> monitor(FsLoader::loadFsMonitor("monitor_inotify", &settings));
    if (!monitor) return std::fprintf(stderr, "kept: there is no monitor\n"), 1;

    std::wstring directory;
    FsQuery query;
    if (!fsToWide(argv[1], directory)) return 1;
    query.addIncludePath((L"$local::*:" + directory).c_str(), true);

    FsCacheWatch watch(fsCacheSettings(settings), *monitor);
    std::wstring problem;
    if (watch.begin(query, problem) != FS_CACHE_SUCCESS)
        return std::fprintf(stderr, "kept: %ls\n", problem.c_str()), 1;

    unsigned long long told = 0;
    for (pollfd events{watch.descriptor(), POLLIN, 0};;) {
        if (poll(&events, 1, -1) < 0 || watch.step() != FS_CACHE_SUCCESS) return 1;
        const FsWatchReport report = watch.report();
        if (report.updates == told) continue;
        told = report.updates;
        std::printf("%u of %u trees are current after %llu events and %llu changes\n",
                    report.current, report.trees, report.events, report.updates);
        std::fflush(stdout);
    }
}

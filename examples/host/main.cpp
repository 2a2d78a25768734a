// A complete host: it asks a provider, sorts the matches on disk, and prints them.
//
//     search DIRECTORY CRITERIA [PROVIDER]
//     search /usr/include '[FILENAME]=="*.h" && [SIZE]>10000'

#include <fscanner/fscanner.h>

#include <clocale>
#include <cstdio>
#include <memory>
#include <string>

using namespace fscanner;

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: search DIRECTORY CRITERIA [PROVIDER]\n");
        return 2;
    }
    std::setlocale(LC_ALL, "");  // the library decodes names by the host's locale

    // Null loads the configured provider.
    const std::unique_ptr<FsProvider> provider(fsLoadProvider(argc > 3 ? argv[3] : nullptr));
    if (!provider) {
        std::fprintf(stderr, "the provider cannot be loaded; startDebug(file) tells why\n");
        return 1;
    }

    std::wstring directory, criteria;
    if (!fsToWide(argv[1], directory) || !fsToWide(argv[2], criteria)) return 1;
    const FsCriteriaReport report = fsCheckCriteria(criteria.c_str());
    if (!report.compiles) {
        std::fprintf(stderr, "at character %u: %s\n", report.position, report.error.c_str());
        return 2;
    }

    // "$all::" searches drives of every kind. Without it only local drives are searched.
    FsQuery query;
    query.addIncludePath((L"$all::" + directory).c_str(), true);
    query.setQuery(criteria.c_str());

    // Accept cached answers of up to 60 minutes, and work at most 30 seconds.
    const std::unique_ptr<FsResultSetReader> results(fsExecuteQuery(provider.get(), query, 60, 30));
    if (!results || provider->lastStatus() != 0) {
        std::fprintf(stderr, "the search failed: %d\n", provider->lastStatus());
        return 1;
    }

    results->sort(FS_SORT_PATHNAME, FS_SORT_ASCENDING, true);
    results->moveFirst();
    for (FsFileInfo file; results->getNext(file);) {
        const std::unique_ptr<wchar_t[]> path(getPathName(file.getPath(), file.getName()));
        std::string bytes;
        if (fsToMultibyte(path.get(), bytes)) std::puts(bytes.c_str());
    }
    return 0;  // deleting the reader removes the file of results
}

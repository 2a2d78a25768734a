// A host that shows the progress of a search, can be cancelled by Ctrl-C, and reports what
// could not be searched. All of this uses an FsScanObserver. Matches are printed as they are
// found.
//
//     watched DIRECTORY CRITERIA [AFTER]
//     watched / '[SIZE]>100000000'
//
// AFTER cancels the search after that many entries.

#include <fscanner/fscanner.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

using namespace fscanner;

namespace {

volatile std::sig_atomic_t cancelled = 0;

std::string bytesOf(const wchar_t* text) {
    std::string bytes;
    fsToMultibyte(text, bytes);
    return bytes;
}

// Called on the thread of the search. Each call must be short and must not throw.
class Watcher : public FsScanObserver {
public:
    explicit Watcher(unsigned long long limit) : limit_(limit) {}

    bool progress(const FsScanProgress& at) override {
        std::fprintf(stderr, "%llu files, %llu directories, %u ms: %s\n", at.files, at.directories,
                     at.elapsedMilliseconds, bytesOf(at.directory).c_str());
        if (limit_ != 0 && at.files + at.directories >= limit_) cancelled = 1;
        return cancelled == 0;  // false ends the search with -41, like a time-out
    }

    // Also called for directories that the query itself leaves out.
    void skipped(const wchar_t* directory, FsSkipReason reason, int systemError) override {
        if (reason == FsSkipReason::excluded || reason == FsSkipReason::otherFileSystem) return;
        std::fprintf(stderr, "not searched: %s (error %d)\n", bytesOf(directory).c_str(),
                     systemError);
        ++unsearched_;
    }

    void undecided(const FsFileInfo&) override { ++undecided_; }

    void finished(const FsScanProgress& totals) override {
        std::fprintf(stderr, "%llu files in %llu directories looked at\n", totals.files,
                     totals.directories);
    }

    bool sawAll() const { return cancelled == 0 && unsearched_ == 0 && undecided_ == 0; }

private:
    unsigned long long limit_;
    unsigned unsearched_ = 0;
    unsigned undecided_ = 0;
};

// Receives the matches.
class Printer : public FsResultSetWriter {
public:
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long, unsigned) override {
        const std::unique_ptr<wchar_t[]> whole(getPathName(path, name));
        std::puts(bytesOf(whole.get()).c_str());
        return 0;
    }
    int addRecord(const FsFileInfo& file) override {
        return addRecord(file.getPath(), file.getName(), 0, 0);
    }
    int close() override { return 0; }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: watched DIRECTORY CRITERIA [AFTER]\n");
        return 2;
    }
    std::setlocale(LC_ALL, "");
    std::signal(SIGINT, [](int) { cancelled = 1; });  // read by progress()

    std::wstring directory, criteria;
    if (!fsToWide(argv[1], directory) || !fsToWide(argv[2], criteria)) return 2;
    FsQuery query;
    query.addIncludePath((L"$all::" + directory).c_str(), true);
    query.setQuery(criteria.c_str());

    // fsScanQuery always walks, so there is progress to watch.
    Watcher watcher(argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 0);
    FsScanObserver* const before = fsSetScanObserver(&watcher);
    Printer printer;
    const int status = fsScanQuery(printer, query, 3600 * 1000);
    fsSetScanObserver(before);
    if (status == 0 && watcher.sawAll()) return 0;
    std::fprintf(stderr, "%s: the answer may lack files\n",
                 cancelled != 0 ? "cancelled" : "incomplete");
    return 3;
}

// Measures a walk of a directory tree by the engine, and by a bare loop over the same system calls.
// The tree has 200 directories of 50 files. It is made once in the temporary directory and removed
// at the end.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/file_processor.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/fs/fs_resultset.h"
#include "micro_records.h"

namespace {

namespace fs = std::filesystem;
using namespace fscanner;

constexpr unsigned kDirectories = 200;
constexpr unsigned kFiles = 50;

class Tree {
public:
    Tree() {
        path_ = (fs::temp_directory_path() / "micro_walk_XXXXXX").string();
        if (mkdtemp(path_.data()) == nullptr) std::abort();
        std::size_t next = 0;
        for (unsigned i = 0; i < kDirectories; ++i) {
            const fs::path directory = fs::path(path_) / ("part" + std::to_string(i));
            fs::create_directory(directory);
            for (unsigned k = 0; k < kFiles; ++k) {
                const fs::path file = directory / bench::records()[next++].name;
                mknod(file.c_str(), S_IFREG | 0600, 0);
            }
        }
    }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree() { fs::remove_all(path_); }

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

const std::string& treePath() {
    static const Tree tree;
    return tree.path();
}

void report(benchmark::State& state, std::size_t found) {
    constexpr double entries = kDirectories * (kFiles + 1.0);
    state.counters["found"] = static_cast<double>(found);
    state.counters["time/item"] = benchmark::Counter(
        entries, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Opens, reads and closes every directory and tests each name, or with `examine` each file's
/// size, and does nothing else.
class BareWalk {
public:
    explicit BareWalk(bool examine) : examine_(examine) {}

    std::size_t run() {
        found_ = 0;
        read(AT_FDCWD, treePath().c_str());
        return found_;
    }

private:
    struct Record {
        ino64_t inode;
        off64_t offset;
        unsigned short length;
        unsigned char type;
        char name[1];
    };

    void read(int parent, const char* name) {
        const int directory = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        std::vector<std::string> inner;
        for (long size; (size = syscall(SYS_getdents64, directory, buffer_, sizeof buffer_)) > 0;) {
            for (long at = 0; at < size;) {
                Record record;
                std::memcpy(&record, buffer_ + at, offsetof(Record, name));
                const char* entry = buffer_ + at + offsetof(Record, name);
                at += record.length;
                if (record.type == DT_DIR) {
                    if (entry[0] != '.') inner.emplace_back(entry);
                } else {
                    look(directory, entry);
                }
            }
        }
        for (const std::string& child : inner) read(directory, child.c_str());
        close(directory);
    }

    void look(int directory, const char* name) {
        struct stat info;
        if (examine_) fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW);
        const std::size_t length = std::strlen(name);
        if (examine_ ? info.st_size == 0 : std::memcmp(name + length - 2, ".h", 2) == 0) ++found_;
    }

    bool examine_;
    std::size_t found_ = 0;
    char buffer_[64 * 1024];
};

void bare(benchmark::State& state, bool examine) {
    BareWalk walk(examine);
    std::size_t found = walk.run();
    for (auto _ : state) found = walk.run();
    report(state, found);
}

class CountingWriter : public FsResultSetWriter {
public:
    int addRecord(const wchar_t*, const wchar_t*, unsigned long long, unsigned) override {
        ++count;
        return 0;
    }
    int addRecord(const FsFileInfo&) override {
        ++count;
        return 0;
    }
    int close() override { return 0; }

    std::size_t count = 0;
};

void scan(benchmark::State& state, const wchar_t* criteria) {
    const std::wstring path(treePath().begin(), treePath().end());
    const PathDrive pair{PathInfo(path.c_str(), true), DriveInfo(L"/:", DRIVE_LOCAL, L"ext4")};
    CountingWriter writer;
    for (auto _ : state) {
        writer.count = 0;
        FileProcessor processor(criteria, true);
        fs_scan(writer, processor, pair, {}, {}, true, 60'000);
    }
    report(state, writer.count);
}

// All of one kind must find the same number. "evaluated" is the same criteria in a form that the
// filter on names does not support, so that every record is evaluated.
const bool kRegistered = [] {
    benchmark::RegisterBenchmark("walk/name/bare", bare, false);
    benchmark::RegisterBenchmark("walk/name/engine", scan, L"[FILENAME]==\"*.h\"");
    benchmark::RegisterBenchmark("walk/name/evaluated", scan, L"!([FILENAME]!=\"*.h\")");
    benchmark::RegisterBenchmark("walk/size/bare", bare, true);
    benchmark::RegisterBenchmark("walk/size/engine", scan, L"[SIZE]==0");
    return true;
}();

}  // namespace

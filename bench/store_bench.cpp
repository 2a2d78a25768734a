// Measures the table store, with the schema of the cache's files table, and bare loops that touch
// the same bytes.
//
//     store_bench [RECORDS [ROUNDS]]
//
// For both forms of a table, prints the best CPU time of the rounds in ns per record, and its ratio
// to the bare loop. The files lie in the temporary directory.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fscanner/common/utf8.h"
#include "fscanner/store/record_encoding.h"
#include "fscanner/store/table.h"

namespace {

using namespace fscanner;
namespace fs = std::filesystem;

/// User and system time in nanoseconds. A busy machine distorts it less than the elapsed time.
double cpuTime() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

struct Entry {
    std::wstring name;
    unsigned attr;
    unsigned long long size;
    unsigned pathId;
};

/// Entries with names like those of a source tree, 16 in each directory.
std::vector<Entry> generate(unsigned count) {
    static constexpr const wchar_t* stems[] = {L"main", L"fs_query", L"Makefile", L"libstdc++"};
    static constexpr const wchar_t* ends[] = {L".h", L".c", L".cpp", L".so.6", L".conf", L""};
    std::mt19937 random(1);
    std::vector<Entry> entries;
    for (unsigned i = 0; i < count; ++i) {
        const auto pick = static_cast<unsigned>(random());
        const std::wstring number = std::to_wstring(pick / 64 % 2000000);
        entries.push_back({std::wstring(stems[pick % 4]) + L'_' + number + ends[pick / 4 % 6],
                           0x2000U | (pick & 0x1FF), 1ULL << pick % 24 | (pick & 0xFFFF), i / 16});
    }
    return entries;
}

/// The bare loop: calls `visit` with the name and the size of each stored record.
template <typename Encoding, typename Visit>
void forEachRecord(const std::string& bytes, std::size_t at, Visit visit) {
    const auto* start = reinterpret_cast<const std::byte*>(bytes.data());
    ByteRange in(start + at, start + bytes.size());
    StoredValue name, attr, size, path;
    while (in.take(1) && readValue<Encoding>(FIELD_TEXT, in, name) &&
           readValue<Encoding>(FIELD_INT32, in, attr) &&
           readValue<Encoding>(FIELD_INT64, in, size) &&
           readValue<Encoding>(FIELD_INT32, in, path)) {
        visit(name.text, size.number);
    }
}

class StoreBench {
public:
    StoreBench(const fs::path& directory, bool compact, const std::vector<Entry>& entries)
        : directory_(directory), compact_(compact), entries_(entries) {
        fs::create_directories(directory);
    }
    ~StoreBench() { fs::remove_all(directory_); }

    void round() {
        fill();
        keepBytes();
        scan("scan by *.h", L"[FILENAME]==\"*.h\"",
             [](std::string_view name, std::uint64_t) { return name.ends_with(".h"); });
        scan(
            "scan by *.h, any case", L"[FILENAME]==\"*.h\"",
            [](std::string_view name, std::uint64_t) {
                return name.size() > 1 && name[name.size() - 2] == '.' && (name.back() | 32) == 'h';
            },
            false);
        scan("scan by a rare size", L"[SIZE]>16000000",
             [](std::string_view, std::uint64_t size) { return size > 16000000; });
        scan("scan by a common size", L"[SIZE]>1000",
             [](std::string_view, std::uint64_t size) { return size > 1000; });
        scan("scan by m*_1*.h", L"[FILENAME]==\"m*_1*.h\"",
             [](std::string_view name, std::uint64_t) {
                 return name.starts_with('m') && name.ends_with(".h") &&
                        name.find("_1") != name.npos;
             });
        lookUp();
        removeAndCompact();
    }

    void report() const {
        std::printf("%s form\n", compact_ ? "compact" : "fixed");
        std::printf("  %-26s %10s %10s %8s\n", "ns per record", "store", "bare", "ratio");
        for (const Result& result : results_) {
            std::printf("  %-26s %10.1f", result.what.c_str(), result.store);
            if (result.bare > 0)
                std::printf(" %10.1f %8.1f", result.bare, result.store / result.bare);
            std::printf("\n");
        }
    }

private:
    struct Result {
        std::string what;
        double store;
        double bare;
    };

    double timed(const std::function<void()>& work, std::size_t count) const {
        const double start = cpuTime();
        work();
        return (cpuTime() - start) / static_cast<double>(count);
    }

    /// Keeps the best of the rounds.
    void note(const std::string& what, double store, double bare) {
        const auto known = std::find_if(results_.begin(), results_.end(),
                                        [&](const Result& result) { return result.what == what; });
        if (known == results_.end()) {
            results_.push_back({what, store, bare});
            return;
        }
        known->store = std::min(known->store, store);
        known->bare = std::min(known->bare, bare);
    }

    std::string file(const char* name) const { return (directory_ / name).string(); }

    void fill() {
        table_ = std::make_unique<FS_Table>(L"files", directory_.wstring().c_str(), compact_);
        table_->addField(L"FILENAME", FIELD_TEXT);
        table_->addField(L"ATTR", FIELD_INT32);
        table_->addField(L"SIZE", FIELD_INT64);
        table_->addField(L"PATHID", FIELD_INT32);
        table_->create();
        table_->addHashIndex(L"files_FILENAME", L"FILENAME");
        table_->addHashIndex(L"files_PATHID", L"PATHID");
        headerSize_ = table_->headerSize();
        RecordSet set = table_->openRecordSet();
        insert_ = timed(
            [&] {
                for (const Entry& entry : entries_) {
                    set.setFieldAsString(0U, entry.name.c_str());
                    set.setFieldAsInt32(1U, entry.attr);
                    set.setFieldAsInt64(2U, entry.size);
                    set.setFieldAsInt32(3U, entry.pathId);
                    if (!set.insert()) std::abort();
                }
            },
            entries_.size());
        note("close, with sync", timed([&] { table_->close(); }, entries_.size()), 0);
    }

    static std::string readFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    /// Keeps the bytes that the inserts wrote, and measures how long it takes to append as many.
    void keepBytes() {
        data_ = readFile(file("files.dat"));
        LinuxMmFile copy(file("copy").c_str());
        copy.setSyncOnClose(false);
        copy.create();
        const std::size_t each = (data_.size() - headerSize_) / entries_.size();
        const double bare = timed(
            [&] {
                for (std::size_t i = 0; i < entries_.size(); ++i) {
                    copy.write(data_.data() + i * each, static_cast<unsigned>(each));
                }
            },
            entries_.size());
        note("insert, two indexes", insert_, bare);
        copy.close();
        fs::remove(file("copy"));
        if (!table_->open()) std::abort();
    }

    template <typename Matches>
    void scan(const char* what, const wchar_t* text, Matches matches, bool caseSensitive = true) {
        std::size_t found = 0, expected = 0;
        CriteriaEvaluator criteria(text);
        RecordSet set = table_->openRecordSet();
        set.setCriteria(&criteria, caseSensitive);
        const double store = timed(
            [&] {
                for (bool more = set.moveFirst(); more; more = set.moveNext()) ++found;
            },
            entries_.size());
        table_->closeRecordSet(set);
        const auto count = [&](std::string_view name, std::uint64_t size) {
            expected += matches(name, size) ? 1 : 0;
        };
        const double bare = timed(
            [&] {
                if (compact_) {
                    forEachRecord<CompactEncoding>(data_, headerSize_, count);
                } else {
                    forEachRecord<FixedEncoding>(data_, headerSize_, count);
                }
            },
            entries_.size());
        if (found != expected) {
            std::printf("%s: %zu found, %zu expected\n", what, found, expected);
            std::exit(1);
        }
        note(what, store, bare);
    }

    /// Measures the look-up of exact names by the index. The store compiles a new criteria for
    /// each name, as a query does; the bare loop follows the chain of the index alone.
    void lookUp() {
        constexpr std::size_t lookups = 20000;
        std::mt19937 random(2);
        RecordSet set = table_->openRecordSet();
        std::vector<std::wstring> names;
        for (std::size_t i = 0; i < lookups; ++i)
            names.push_back(entries_[random() % entries_.size()].name);
        std::size_t found = 0;
        const double store = timed(
            [&] {
                for (const std::wstring& name : names) {
                    CriteriaEvaluator criteria((L"[FILENAME]==\"" + name + L'"').c_str());
                    set.setCriteria(&criteria, true);
                    for (bool more = set.moveFirst(); more; more = set.moveNext()) ++found;
                }
            },
            lookups);
        const auto index = table_->searchHashIndexForFieldName(L"FILENAME", false);
        const double bare = timed(
            [&] {
                std::wstring key;
                TextField field(L"F");
                unsigned id = 0, next = 0;
                for (const std::wstring& name : names) {
                    field.assign(name);
                    makeIndexKey(field, key);
                    for (bool more = table_->hashIndex_moveFirst(*index, key.c_str(), id, next);
                         more; more = table_->hashIndex_moveNext(*index, id, next)) {
                    }
                }
            },
            lookups);
        if (found < lookups) std::abort();
        note("exact name (per lookup)", store, bare);
        table_->closeRecordSet(set);
    }

    void removeAndCompact() {
        const auto count = static_cast<unsigned>(entries_.size());
        const double removed = timed(
            [&] {
                for (unsigned id = 0; id < count; id += 2) table_->remove(id);
            },
            count / 2);
        note("removal", removed, 0);
        table_->close();
        const double compacted = timed([&] { table_->compact(30); }, count / 2);
        note("compaction, with sync", compacted, 0);
    }

    fs::path directory_;
    bool compact_;
    const std::vector<Entry>& entries_;
    std::unique_ptr<FS_Table> table_;
    std::string data_;
    unsigned headerSize_ = 0;
    double insert_ = 0;
    std::vector<Result> results_;
};

}  // namespace

int main(int argc, char** argv) {
    const auto count = static_cast<unsigned>(argc > 1 ? std::atoi(argv[1]) : 1000000);
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 3;
    const std::vector<Entry> entries = generate(count);
    for (const bool compact : {false, true}) {
        StoreBench bench(fs::temp_directory_path() / ("store_bench_" + std::to_string(getpid())),
                         compact, entries);
        for (int i = 0; i < rounds; ++i) bench.round();
        bench.report();
    }
}

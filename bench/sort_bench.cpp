// Compares the sorting of results with GNU sort of the same paths.
//
//     sort_bench [RECORDS [ROUNDS]]
//     sort_bench --make DIRECTORY RECORDS      makes the input files for bench/compare
//
// For each key it runs GNU sort, the sort of a record file, and the sort in memory that fscan uses
// for most searches. It prints the best times of the rounds, the ratios, and the peak of each
// process's private memory. The files lie in the temporary directory.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "fscan/sort/memory_sorter.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_resultset_file.h"

namespace {

using namespace fscanner;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Entry {
    std::string directory;
    std::string name;
    unsigned size;
};

// Entries as a search finds them: directories in the order of a walk, names in no order.
std::vector<Entry> generate(unsigned count) {
    static constexpr const char* stems[] = {"main", "test", "util", "index", "config", "README"};
    static constexpr const char* ends[] = {".c", ".h", ".py", ".txt", ".json", ""};
    std::mt19937 random(1);
    std::vector<Entry> entries;
    std::string directory;
    for (unsigned i = 0; i < count; ++i) {
        if (i % 16 == 0) {
            directory = "/srv/data/project_" + std::to_string(i / 4096) + "/module_" +
                        std::to_string(i / 128 % 32) + "/part_" + std::to_string(i / 16);
        }
        const auto pick = static_cast<unsigned>(random());
        entries.push_back({directory,
                           std::string(stems[pick % 6]) + "_" + std::to_string(pick / 6 % 2000000) +
                               ends[pick / 100 % 6],
                           1u << pick % 24 | (pick & 0xFFFF)});
    }
    return entries;
}

struct Cost {
    double milliseconds = 0;
    double cpuMilliseconds = 0;  // user and system time; little distorted by a busy machine
    long privateKiB = 0;
};

// The anonymous memory of a process. The pages of mapped files belong to the page cache and do not
// count.
long anonymousKiB(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) return std::strtol(line.c_str() + 8, nullptr, 10);
    }
    return 0;
}

double milliseconds(const timeval& t) {
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
}

using Arguments = std::vector<std::string>;

// Uses posix_spawn: after a fork, the copy of this process would count as the program's memory.
pid_t start(const Arguments& program) {
    std::vector<char*> arguments;
    for (const std::string& a : program) arguments.push_back(const_cast<char*>(a.c_str()));
    arguments.push_back(nullptr);
    pid_t child = -1;
    ::posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ);
    return child;
}

Cost measure(const Arguments& program) {
    Cost cost;
    const auto begin = Clock::now();
    const pid_t child = start(program);
    int status = 0;
    rusage usage{};
    do {
        cost.privateKiB = std::max(cost.privateKiB, anonymousKiB(child));
        ::usleep(2000);
    } while (::wait4(child, &status, WNOHANG, &usage) == 0);
    cost.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    cost.cpuMilliseconds = milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
    if (status != 0) {
        std::fprintf(stderr, "a sort failed\n");
        std::exit(1);
    }
    return cost;
}

Cost best(unsigned rounds, const std::function<void()>& prepare, const Arguments& program) {
    Cost result;
    for (unsigned i = 0; i < rounds; ++i) {
        prepare();
        const Cost cost = measure(program);
        if (i == 0 || cost.milliseconds < result.milliseconds) result = cost;
    }
    return result;
}

void writeRecords(const std::string& file, const std::vector<Entry>& entries) {
    FsResultSetWriter_OnFile writer(file.c_str());
    for (const Entry& e : entries) {
        writer.addRecord(toWide(e.directory).c_str(), toWide(e.name).c_str(), e.size, 0x2000);
    }
}

struct Comparison {
    const char* title;
    unsigned key;
    const char* option;  // of GNU sort
    std::function<std::string(const Entry&)> line;
};

void print(const char* title, const char* what, const Cost& ours, const Cost& theirs) {
    std::printf(
        "%-10s %-8s %6.0f ms %6.0f CPU %6.1f MiB, of GNU sort's %.2f, of CPU %.2f\n", title, what,
        ours.milliseconds, ours.cpuMilliseconds, static_cast<double>(ours.privateKiB) / 1024,
        ours.milliseconds / theirs.milliseconds, ours.cpuMilliseconds / theirs.cpuMilliseconds);
}

void compare(const Comparison& c, const std::vector<Entry>& entries, const fs::path& directory,
             unsigned rounds) {
    const std::string lines = directory / "lines", out = directory / "out";
    const std::string records = directory / "records", matches = directory / "matches";
    const std::string key = std::to_string(c.key);
    {
        std::ofstream file(lines), forUs(matches);
        for (const Entry& e : entries) {
            file << c.line(e) << "\n";
            if (c.key == FS_SORT_SIZE) forUs << e.size << "\t";
            forUs << e.directory << "/" << e.name << "\n";
        }
    }
    const Cost theirs = best(rounds, [] {}, {"sort", "--parallel=1", c.option, "-o", out, lines});
    const Cost onDisk = best(rounds, [&] { writeRecords(records, entries); },
                             {"/proc/self/exe", "--sort", key, records});
    const Cost inMemory = best(rounds, [] {}, {"/proc/self/exe", "--memory", key, matches, out});
    print(c.title, "GNU sort", theirs, theirs);
    print(c.title, "file", onDisk, theirs);
    print(c.title, "memory", inMemory, theirs);
}

int sortFile(unsigned key, const char* records) {
    FsResultSetReader_OnFile reader(records);
    return reader.sort(key, FS_SORT_ASCENDING, true) != 0 ? 0 : 1;
}

// Sorts matches as fscan does. Reads and writes the same paths as GNU sort.
int sortInMemory(unsigned key, const char* matches, const char* out) {
    constexpr fscan::SortKey keys[] = {fscan::SortKey::path, fscan::SortKey::name,
                                       fscan::SortKey::pathname, fscan::SortKey::size};
    fscan::MemorySorter sorter({{keys[key - 1]}, false});
    std::ifstream in(matches, std::ios::binary);
    for (std::string line; std::getline(in, line);) {
        std::string_view path = line;
        fscan::FileFacts facts;
        if (key == FS_SORT_SIZE) {
            const char* tab =
                std::from_chars(line.data(), line.data() + line.size(), facts.size).ptr;
            path.remove_prefix(static_cast<std::size_t>(tab + 1 - line.data()));
            facts.known = true;
        }
        sorter.add({path, path.rfind('/') + 1, facts});
    }
    sorter.sort();
    std::ofstream to(out, std::ios::binary);
    std::string buffer;
    for (std::size_t i = 0; i < sorter.size(); ++i) {
        buffer.append(sorter.at(i).path) += '\n';
        if (buffer.size() < 60000) continue;
        to << buffer;
        buffer.clear();
    }
    to << buffer;
    return 0;
}

// Makes a record file, and the same entries as lines for GNU sort.
int makeFiles(const fs::path& directory, unsigned count) {
    const std::vector<Entry> entries = generate(count);
    writeRecords(directory / "records", entries);
    std::ofstream byName(directory / "lines-name"), bySize(directory / "lines-size");
    for (const Entry& e : entries) {
        byName << e.name << "\t" << e.directory << "\n";
        bySize << e.size << "\t" << e.directory << "/" << e.name << "\n";
    }
    return byName.flush() && bySize.flush() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 3 ? argv[1] : "";
    const auto key = static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : 0);
    if (mode == "--sort") return sortFile(key, argv[3]);
    if (mode == "--make") return makeFiles(argv[2], static_cast<unsigned>(std::atoi(argv[3])));
    if (mode == "--memory") return sortInMemory(key, argv[3], argv[4]);
    ::setenv("LC_ALL", "C", 1);
    const auto count = static_cast<unsigned>(argc > 1 ? std::atoi(argv[1]) : 1000000);
    const auto rounds = static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : 3);
    std::string name = (fs::temp_directory_path() / "sort_bench_XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) return 1;
    const std::vector<Entry> entries = generate(count);
    const Comparison comparisons[] = {
        {"name", FS_SORT_NAME, "-s", [](const Entry& e) { return e.name + "\t" + e.directory; }},
        {"path name", FS_SORT_PATHNAME, "-s",
         [](const Entry& e) { return e.directory + "/" + e.name; }},
        {"size", FS_SORT_SIZE, "-n",
         [](const Entry& e) { return std::to_string(e.size) + "\t" + e.directory + "/" + e.name; }},
    };
    for (const Comparison& c : comparisons) compare(c, entries, name, rounds);
    fs::remove_all(name);
    return 0;
}

// Makes a tree of files to search. The tree depends only on the number of entries:
//
//     make_tree DIRECTORY ENTRIES
//
// DIRECTORY must not exist. Names have 3 to 60 characters; one in twenty begins with a word that is
// not ASCII. The tree is up to 15 levels deep. Of every 100,000 entries, 10,000 lie in one
// directory. Files are empty or sparse, so that a million entries take about 200 MB. Exactly one
// file is called "needle-in-the-hay.dat". A directory "small" holds 1,000 entries. Prints
// the number of entries.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr unsigned kDeepest = 14;  // the root of the tree is 0
constexpr unsigned kHuge = 10'000;
constexpr unsigned kSmallTree = 1'000;
constexpr unsigned kEntriesPerHuge = 100'000;

/// A random generator of our own (splitmix64): the distributions of the standard library differ
/// between its implementations, and the tree has to be the same everywhere.
class Random {
public:
    std::uint64_t next() {
        std::uint64_t z = state_ += 0x9E3779B97F4A7C15;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
        z = (z ^ z >> 27) * 0x94D049BB133111EB;
        return z ^ z >> 31;
    }
    unsigned below(unsigned limit) { return static_cast<unsigned>(next() % limit); }
    unsigned between(unsigned low, unsigned high) { return low + below(high - low + 1); }
    bool oneIn(unsigned n) { return below(n) == 0; }
    template <typename T, std::size_t N>
    const T& of(const std::array<T, N>& choices) {
        return choices[below(N)];
    }

private:
    std::uint64_t state_ = 1;
};

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "make_tree: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(1);
}

// The last word and the endings are used for files only. So "*config*" and "*.h" match no
// directory, and programs that also list directories find the same number of paths.
constexpr std::array kWords{
    "main",    "index",  "test",     "data",   "report", "image",  "readme",  "module", "parser",
    "network", "client", "server",   "common", "utils",  "backup", "invoice", "photo",  "track",
    "letter",  "draft",  "build",    "cache",  "widget", "matrix", "vector",  "thread", "socket",
    "kernel",  "driver", "Makefile", "IMG",    "DSC",    "lib",    "py",      "config"};
constexpr std::array kForeign{"Übersicht", "café", "naïve",  "отчёт", "данные",
                              "写真",      "文档", "résumé", "señal", "Ελλάδα"};
constexpr std::array kEnds{".h",   ".c",   ".cpp", ".py",  ".js",   ".json", ".html", ".png",
                           ".jpg", ".txt", ".md",  ".xml", ".so.1", ".o",    ".conf", ""};
constexpr std::array kJoints{"_", "-", ".", ""};

class Maker {
public:
    explicit Maker(unsigned entries) : left_(entries) {}

    void fill(int directory, unsigned budget, unsigned depth);
    void files(int directory, unsigned count);
    void subdirectory(int parent, const std::string& name, unsigned budget, unsigned depth);
    void file(int directory, const std::string& name);
    unsigned made() const { return made_; }
    unsigned left() const { return left_ - made_; }

private:
    const char* word(bool isFile) { return kWords[random_.below(kWords.size() - !isFile)]; }
    std::string name(bool isFile);

    Random random_;
    unsigned left_;
    unsigned made_ = 0;
};

/// Makes a unique name: it contains the number of entries made so far.
std::string Maker::name(bool isFile) {
    std::string text = random_.oneIn(20) ? random_.of(kForeign) : word(isFile);
    const unsigned more = random_.oneIn(30) ? random_.between(3, 6) : random_.below(2);
    for (unsigned i = 0; i < more && text.size() < 40; ++i)
        text += std::string(random_.of(kJoints)) + word(isFile);
    text += random_.of(kJoints) + std::to_string(made_);
    return isFile ? text + random_.of(kEnds) : text;
}

void Maker::file(int directory, const std::string& name) {
    ++made_;
    if (random_.oneIn(3)) {
        if (mknodat(directory, name.c_str(), S_IFREG | 0644, 0) != 0) fail(name);
        return;
    }
    // Sizes up to 2 GiB. One file in eight may be larger than 128 KiB.
    const unsigned bits = random_.oneIn(8) ? random_.between(1, 30) : random_.between(1, 16);
    const auto size = static_cast<off_t>(random_.next() & ((std::uint64_t{2} << bits) - 1));
    const int file = openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file < 0 || ftruncate(file, size) != 0) fail(name);
    close(file);
}

void Maker::files(int directory, unsigned count) {
    for (unsigned i = 0; i < count; ++i) file(directory, name(true));
}

void Maker::subdirectory(int parent, const std::string& name, unsigned budget, unsigned depth) {
    ++made_;
    if (mkdirat(parent, name.c_str(), 0755) != 0) fail(name);
    const int directory = openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) fail(name);
    fill(directory, budget, depth);
    close(directory);
}

/// Makes some files in this directory, and the rest of the budget in directories of uneven size.
void Maker::fill(int directory, unsigned budget, unsigned depth) {
    const unsigned here = random_.oneIn(12) ? random_.between(80, 400) : random_.between(0, 40);
    if (budget <= here + 8 || depth == kDeepest) return files(directory, budget);
    files(directory, here);
    budget -= here;
    // The first directory gets two thirds of the rest, so that some branches become deep.
    unsigned share = budget * 2 / 3;
    while (budget > 0) {
        subdirectory(directory, name(false), share - 1, depth + 1);
        budget -= share;
        share = std::min(budget, random_.between(10, std::max(budget / 8, 60U)));
    }
}

unsigned number(const char* text) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    return *end == '\0' && value <= 100'000'000 ? static_cast<unsigned>(value) : 0;
}

int makeTree(const char* path, unsigned entries) {
    if (mkdir(path, 0755) != 0) fail(path);
    const int root = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (root < 0) fail(path);
    Maker maker(entries);
    maker.file(root, "needle-in-the-hay.dat");
    mkdirat(root, "small", 0755);
    const int small = openat(root, "small", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (small < 0) fail("small");
    maker.fill(small, kSmallTree, kDeepest - 3);
    for (unsigned i = 0; i < entries / kEntriesPerHuge; ++i)
        maker.subdirectory(root, "huge" + std::to_string(i), kHuge, kDeepest);
    while (maker.left() > 0) {
        const unsigned share = std::min(maker.left(), std::max(entries / 8, 1U));
        maker.subdirectory(root, "part" + std::to_string(maker.made()), share - 1, 1);
    }
    std::printf("%u\n", maker.made());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned entries = argc == 3 ? number(argv[2]) : 0;
    if (entries < 2 * kSmallTree) {
        std::fprintf(stderr, "usage: make_tree DIRECTORY ENTRIES (from 2000)\n");
        return 2;
    }
    return makeTree(argv[1], entries);
}

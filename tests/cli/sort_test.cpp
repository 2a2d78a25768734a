// Sorted output: in memory and through a temporary file.

#include <algorithm>

#include "program_run.h"

namespace fscan::test {
namespace {

using testing::HasSubstr;

struct File {
    std::string path;
    std::uintmax_t size;

    std::string directory() const { return path.substr(0, path.rfind('/')); }
    std::string name() const { return path.substr(path.rfind('/') + 1); }
};

class SortTest : public FscanTest {
protected:
    // Equal keys of every kind, bytes of every rank, directories whose names are prefixes of others
    // and lie among them.
    SortTest() {
        std::size_t size = 0;
        for (const char* directory : {"./a", "./a/b", "./a b", "./B", "./\xFF", "./a/xa/Z/12345678",
                                      "./a/xa", "./a/x-", "./a/Y/x", "./a/12345678aa"}) {
            for (const char* name : {"x", "X", "xy", "12345678a", "12345678b", "\xC3\xA9", "\xE9",
                                     "\xFF", "\xEE\x80\x80", "~"}) {
                files_.push_back({std::string(directory) + "/" + name, size++ % 4});
                add(files_.back().path, std::string(files_.back().size, '.'));
            }
        }
    }

    /// The lines of the output.
    template <class Key>
    std::string sortedBy(Key key, bool reversed) {
        std::sort(files_.begin(), files_.end(), [&](const File& a, const File& b) {
            return key(a) != key(b) ? key(a) < key(b) : a.path < b.path;
        });
        if (reversed) std::reverse(files_.begin(), files_.end());
        std::string paths;
        for (const File& file : files_) paths += file.path + '\n';
        return paths;
    }
    std::string expected(const std::string& key, bool reversed) {
        if (key == "path") return sortedBy([](const File& f) { return f.directory(); }, reversed);
        if (key == "name") return sortedBy([](const File& f) { return f.name(); }, reversed);
        if (key == "size") return sortedBy([](const File& f) { return f.size; }, reversed);
        if (key == "path,size")
            return sortedBy([](const File& f) { return std::pair(f.directory(), f.size); },
                            reversed);
        if (key == "size,name")
            return sortedBy([](const File& f) { return std::pair(f.size, f.name()); }, reversed);
        return sortedBy([](const File& f) { return f.path; }, reversed);
    }

    std::vector<File> files_;
};

TEST_F(SortTest, OrderIsTotalAndTheSameFromMemoryAndFromTheFile) {
    for (const std::string key : {"path", "name", "pathname", "size", "path,size", "size,name"}) {
        for (const bool reversed : {false, true}) {
            const auto order = expected(key, reversed);
            for (const bool spilled : {false, true}) {
                for (const std::string locale : {"C", "C.UTF-8"}) {
                    Arguments arguments = {"--sort", key};
                    if (reversed) arguments.push_back("--reverse");
                    if (spilled) arguments.push_back("--spill");
                    const RunResult result = run(arguments, {.environment = {{"LC_ALL", locale}}});
                    EXPECT_EQ(result.status, 0) << result.err;
                    EXPECT_EQ(result.out, order) << key << ", reversed " << reversed << ", spilled "
                                                 << spilled << ", " << locale;
                }
            }
        }
    }
}

TEST_F(SortTest, FactsComeBackFromTheFile) {
    std::filesystem::create_symlink("nowhere", tree_ / "link");
    for (const auto& [name, size] : {std::pair{"huge", 5ull << 30}, std::pair{"huger", 9ull << 30},
                                     std::pair{"large", 3ull << 30}}) {
        add(name);
        std::filesystem::resize_file(tree_ / name, size);
    }
    for (const std::string key : {"size", "name"}) {
        const RunResult fromMemory = run({"-l", "--bytes", "--sort", key});
        const RunResult fromFile = run({"-l", "--bytes", "--sort", key, "--spill"});
        EXPECT_EQ(fromFile.out, fromMemory.out);
        EXPECT_THAT(fromFile.out, HasSubstr(std::to_string(9ull << 30)));
    }
    EXPECT_THAT(run({"--sort", "size", "--reverse", "--spill"}).out,
                testing::StartsWith("./huger\n./huge\n./large\n"));
}

TEST_F(SortTest, PathsComeBackFromTheFileAsTheyWereGiven) {
    for (const char* path : {"a//", "a/.", ".///", "/", "//", "///"}) {
        const RunResult fromMemory = run({"--no-recurse", "--sort", "name", path});
        const RunResult fromFile = run({"--no-recurse", "--sort", "name", "--spill", path});
        EXPECT_EQ(fromFile.out, fromMemory.out);
        for (const std::string& line : records(fromFile.out))
            EXPECT_THAT(line, testing::StartsWith(path));
    }
    EXPECT_EQ(run({"--sort", "name", "-n", "x*", "B", "a b"}).out, "B/x\na b/x\nB/xy\na b/xy\n");
}

TEST_F(SortTest, RunsInTheFileAreMerged) {
    // With many equal keys, several times as much as is sorted at once if all goes to the file.
    for (int i = 0; i < 12000; ++i)
        add("many" + std::to_string(i % 7) + "/" + std::to_string(i * 7919 % 4000) +
            std::string(200, 'n'));
    for (const std::string key : {"path", "name", "pathname", "size"})
        for (const std::string order : {"--sort", "--reverse --sort"})
            EXPECT_EQ(shell("\"$0\" --no-cache --spill -l " + order + " " + key).out,
                      shell("\"$0\" --no-cache -l " + order + " " + key).out)
                << order << " " << key;
}

TEST_F(SortTest, FileThatCannotBeWrittenIsAFailure) {
    // A limit on file sizes stands for a full disk.
    const RunResult result =
        shell("trap '' XFSZ; ulimit -f 1; exec \"$0\" --no-cache --sort name --spill");
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("the temporary file of matches cannot be written"));
}

// However it ends, nothing can be left of a file that never had a name.
TEST_F(SortTest, FileHasNoName) {
    for (int i = 0; i < 4000; ++i) add("a/" + std::to_string(i) + std::string(100, 'n'));
    // The program waits for a reader when the files that it has open are listed.
    const RunResult listed = shell(
        "mkfifo p; \"$0\" --no-cache --sort name --spill > p & exec 3< p; head -c 1 <&3;"
        "ls -l /proc/$!/fd; kill $!; cat <&3 > /dev/null; wait; rm p");
    EXPECT_THAT(listed.out, HasSubstr("(deleted)")) << listed.err;
}

}  // namespace
}  // namespace fscan::test

// The same questions in every way: directly, from a new, an old and an updated
// cache, and from a monitored one, each with a plan made for the call and a kept one.
// A plain recursive walk with an evaluation of its own says what is right. The
// tree has mounts of every kind, and names that were chosen to mislead a
// search.

#include "engine/every_way.h"
#include "discovery/fixtures.h"
#include "engine/plain_walk.h"
#include "support/private_mounts.h"
#include "support/scoped_locale.h"

namespace fscanner {
namespace {

using namespace plain;

// ---- The questions ----------------------------------------------------------

Value isText(const File& file, bool cased) {
    return named(file, L"*.txt", cased);
}
Value isA(const File& file, bool cased) {
    return named(file, L"a.txt", cased);
}
Value isB(const File& file, bool cased) {
    return named(file, L"b.txt", cased);
}
long long size(const File& file) {
    return file.info.st_size;
}
long long attributes(const File& file) {
    // A bit for each permission, from the owner's "read" on, and the kind of file.
    static constexpr mode_t kBits[] = {S_IRUSR, S_IWUSR, S_IXUSR, S_IRGRP, S_IWGRP,
                                       S_IXGRP, S_IROTH, S_IWOTH, S_IXOTH};
    long long sum = 0;
    for (std::size_t i = 0; i < std::size(kBits); ++i)
        if (file.info.st_mode & kBits[i]) sum += 2LL << i;
    if (S_ISLNK(file.info.st_mode)) sum += 4096;
    if (S_ISREG(file.info.st_mode)) sum += 8192;
    return sum;
}

/// A criteria, asked of all local files.
template <typename Fact>
Question about(const wchar_t* criteria, Fact value) {
    return {.include = {"+"}, .criteria = criteria, .value = value};
}
template <typename Fact>
Question inAnyCase(const wchar_t* criteria, Fact value) {
    return {.include = {"+"}, .criteria = criteria, .value = value, .cased = false};
}

const std::map<std::string, Question> kQuestions = {
    // ---- Places and drives
    {"everything", {{"+"}}},
    {"everything, whatever the drive", {{"$all::+"}}},
    {"what is remote", {{"$remote::+"}}},
    {"one directory", {{"plain"}}},
    {"overlapping paths", {{"plain+", "plain/deep+", "plain/deep", "+"}}},
    {"the same place for two groups", {{"$local::n1+", "$remote::n1/n2+"}}},
    {"a local place below a remote one", {{"$local::n1/n2/n3+"}}},
    {"local places inside remote ones", {{"$all::n1/n2/n3+", "n1"}}},
    {"a bind mount", {{"binds+"}}},
    {"a mount reached by a link", {{"by+"}}},
    {"a mount below a link", {{"by/target/x+"}}},
    {"a part of a bind mount", {{"binds/target/x+"}}},
    {"a place below a star", {{"m/*+"}}},
    {"beside a star", {{"m/ab+"}}},
    {"around a star", {{"m+"}}},
    {"around remote mounts with such names", {{"r+"}}},
    {"whatever the drive, around such names", {{"$all::r+"}}},
    {"remote, with such a name", {{"$remote::r/*+", "$remote::r/end:+"}}},
    {"a place with a colon", {{"c/end:+"}}},
    {"around a colon", {{"c+"}}},
    {"where a mount is covered", {{"cov+"}}},
    {"below what covers it", {{"cov/in/low+"}}},
    {"where a remote mount is covered", {{"rc+"}}},
    {"without a file system that is not there", {.include = {"+"}, .notFileSystem = L"proc"}},
    {"without a file system", {.include = {"$all::+"}, .notFileSystem = L"ramfs"}},
    {"one file system", {.include = {"$all::+"}, .onlyFileSystem = L"ramfs"}},
    // ---- Kinds and depths
    {"directories", {.include = {"+"}, .kinds = FS_KIND_DIRECTORY}},
    {"directories everywhere", {.include = {"$all::+"}, .kinds = FS_KIND_DIRECTORY}},
    {"all kinds", {.include = {"$all::+"}, .kinds = FS_KINDS_ALL}},
    {"links", {.include = {"+"}, .kinds = FS_KIND_LINK}},
    {"files alone", {.include = {"plain+"}, .kinds = FS_KIND_FILE}},
    {"pipes and sockets", {.include = {"+"}, .kinds = FS_KIND_PIPE | FS_KIND_SOCKET}},
    {"directories in a mount below a mount", {.include = {"n1+"}, .kinds = FS_KIND_DIRECTORY}},
    {"directories with a name",
     {.include = {"+"},
      .criteria = L"[FILENAME]==\"n1\" || [FILENAME]==\"x\"",
      .value = [](const File& file, bool cased) -> Value {
          return *named(file, L"n1", cased) || *named(file, L"x", cased);
      },
      .kinds = FS_KIND_DIRECTORY}},
    {"directories by size and attributes",
     {.include = {"plain+"},
      .criteria = L"[SIZE]>=40 && ([ATTR] & 1)!=0",
      .value = [](const File& file, bool) { return size(file) >= 40; },
      .kinds = FS_KIND_DIRECTORY}},
    {"directories of one directory", {.include = {"plain"}, .kinds = FS_KIND_DIRECTORY}},
    {"directories but for some",
     {.include = {"$all::+"}, .exclude = {"plain/deep+", "n1/n2"}, .kinds = FS_KINDS_ALL}},
    {"the upper two levels",
     {.include = {"$all::+"}, .kinds = FS_KINDS_ALL, .depth = {.least = 0, .most = 2}}},
    {"the third level",
     {.include = {"$all::+"}, .kinds = FS_KINDS_ALL, .depth = {.least = 3, .most = 3}}},
    {"from the third level on", {.include = {"n1+"}, .depth = {.least = 3}}},
    {"no level", {.include = {"+"}, .depth = {.least = 0, .most = 0}}},
    // ---- Exclusions
    {"without a tree", {{"+"}, {"plain/deep+"}}},
    {"without a directory alone", {{"+"}, {"plain/deep"}}},
    {"without a pattern", {{"plain+", "c+"}, {"*/deep+"}}},
    {"without another case", {.include = {"+"}, .exclude = {"PLAIN/Deep+"}, .cased = false}},
    {"the case matters", {{"+"}, {"PLAIN/Deep+"}}},
    {"a local exclusion spares remote drives", {{"$all::n1+"}, {"n1+"}}},
    {"without all below a mount", {{"$all::+"}, {"$all::n1/n2+"}}},
    {"without the mount with a colon", {{"c+"}, {"c/end:+"}}},
    // ---- Names
    {"a name", about(L"[FILENAME]==\"a.txt\"", isA)},
    {"a name, no case", inAnyCase(L"[FILENAME]==\"A.txt\"", isA)},
    {"the Kelvin sign",
     inAnyCase(L"[FILENAME]==\"k.txt\"",
               [](const File& file, bool cased) { return named(file, L"k.txt", cased); })},
    {"a pattern", about(L"[FILENAME]==\"*.txt\"", isText)},
    {"a pattern, no case", inAnyCase(L"[FILENAME]==\"*.TXT\"", isText)},
    {"no such pattern", about(L"[FILENAME]!=\"*.txt\"",
                              [](const File& file, bool cased) {
                                  const Value text = isText(file, cased);
                                  return text ? Value(*text == 0) : text;
                              })},
    {"not a name", about(L"([FILENAME]==\"a.txt\")==0",
                         [](const File& file, bool cased) { return *isA(file, cased) == 0; })},
    {"one less a name", about(L"1-([FILENAME]==\"a.txt\")",
                              [](const File& file, bool cased) { return 1 - *isA(file, cased); })},
    {"bits of two names",
     about(L"([FILENAME]==\"a.txt\") | ([FILENAME]==\"b.txt\")",
           [](const File& file, bool cased) { return *isA(file, cased) | *isB(file, cased); })},
    {"one of two names",
     about(L"[FILENAME]==\"a.txt\" || [FILENAME]==\"b.txt\"",
           [](const File& file, bool cased) { return *isA(file, cased) || *isB(file, cased); })},
    {"a short name", about(L"[SHORTFILENAME]==\"\" && [FILENAME]==\"a.txt\"", isA)},
    {"a path", about(L"path([PATHID],[FILENAME])==\"*/deep/x/*\"",
                     [](const File& file, bool cased) {
                         return equal(toWide("/" + file.directory + "/" + file.name), L"*/deep/x/*",
                                      cased);
                     })},
    // ---- Facts
    {"a size",
     {.include = {"$all::+"},
      .criteria = L"[SIZE]>=1000",
      .value = [](const File& file, bool) { return size(file) >= 1000; }}},
    {"a large size",
     about(L"[SIZE]>2147483647", [](const File& file, bool) { return size(file) > 2147483647; })},
    {"a size and a name",
     about(L"[FILENAME]==\"b.txt\" && [SIZE]/2*2!=[SIZE]",
           [](const File& file, bool cased) { return *isB(file, cased) && size(file) % 2 != 0; })},
    {"any number but 0", about(L"[SIZE]", [](const File& file, bool) { return size(file); })},
    {"two", about(L"2", [](const File&, bool) { return 2; })},
    {"an attribute",
     about(L"([ATTR] & 8)!=0", [](const File& file, bool) { return (attributes(file) & 8) != 0; })},
    {"links", about(L"([ATTR] & 4096)!=0", [](const File& file, bool) { return file.isLink(); })},
    {"an attribute that is not compared",
     about(L"[ATTR] & 4096", [](const File& file, bool) { return attributes(file) & 4096; })},
    {"all attributes",
     about(L"[ATTR]==8204", [](const File& file, bool) { return attributes(file) == 8204; })},
};

// ---- The tree ---------------------------------------------------------------

void plant(const TempTree& tree, const char* below, mode_t mode, off_t size) {
    tree.file(below);
    if (::truncate(tree.path(below).c_str(), size) != 0 ||
        ::chmod(tree.path(below).c_str(), mode) != 0)
        throw std::runtime_error(below);
}

void plantPlain(const TempTree& tree) {
    plant(tree, "plain/a.txt", 0644, 1);
    plant(tree, "plain/A.TXT", 0755, 2);
    plant(tree, "plain/b.txt", 0600, 3);
    plant(tree, "plain/c.h", 0400, 1500);
    plant(tree, "plain/large", 0644, 3LL << 30);
    plant(tree, "plain/exactly", 0644, (1LL << 31) - 1);
    for (const char* name :
         {"empty", "sp ace.txt", "star*.txt", "q?", "*", "\xff.txt", "\xe2\x84\xaa.txt", "k.txt",
          "\xc5\xbf", "deep/b.txt", "deep/x/y/z.txt"})
        plant(tree, (std::string("plain/") + name).c_str(), 0644, 0);
    tree.link("a.txt", "plain/link.txt");
    tree.link("deep", "plain/to deep");
    if (::mkfifo(tree.path("plain/deep/pipe").c_str(), 0600) != 0)
        throw std::runtime_error("no pipe");
}

/// A mount, and the files that are planted in it.
struct Mounted {
    const char* at;
    const char* source;
    const char* type;
    Names files;
};

const Mounted kMounts[] = {
    {"m/*", "none", "tmpfs", {"a.txt", "sub/b.txt"}},
    {"m/?", "none", "tmpfs", {"a.txt"}},
    {"r/*", "server:/star", "tmpfs", {"a.txt"}},
    {"r/end:", "server:/colon", "tmpfs", {"b.txt"}},
    {"c/end:", "none", "tmpfs", {"a.txt", "sub/b.txt"}},
    {"cov/in/low", "none", "tmpfs", {"covered.txt"}},
    {"cov/in", "none", "tmpfs", {"a.txt", "low/b.txt"}},
    {"rc/x", "server:/covered", "tmpfs", {"covered.txt"}},
    {"rc", "none", "tmpfs", {"x/y/a.txt"}},
    {"n1", "none", "tmpfs", {"a.txt", "n2/hidden"}},
    {"n1/n2", "none", "tmpfs", {"b.txt"}},
    {"n1/n2/n3", "server:/export", "tmpfs", {"a.txt", "sub/c.h"}},
    {"n1/n2/n3/back", "none", "tmpfs", {"a.txt"}},
    {"far", "server:/other", "tmpfs", {"b.txt"}},
    {"ram", "none", "ramfs", {"a.txt", "sub/b.txt"}},
};

bool plantTree(const TempTree& tree, std::map<dev_t, FileSystem>& systems) {
    if (!mountMemory("none", tree.path())) return false;
    plantPlain(tree);
    for (const char* file : {"top.txt", "m/ab/b.txt", "m/a/a.txt", "c/a.txt", "c/end/b.txt",
                             "cov/b.txt", "n1/hidden", "r/ab/b.txt", "r/a.txt", "r/end/b.txt"})
        tree.file(file);
    for (const Mounted& mount : kMounts) {
        tree.directory(mount.at);
        if (::mount(mount.source, tree.path(mount.at).c_str(), mount.type, 0, nullptr) != 0)
            return false;
        for (const std::string& file : mount.files)
            plant(tree, (std::string(mount.at) + "/" + file).c_str(), 0644, 1);
    }
    tree.directory("binds/target");
    tree.link("binds", "by");
    if (::mount(tree.path("plain/deep").c_str(), tree.path("by/target").c_str(), nullptr, MS_BIND,
                nullptr) != 0)
        return false;
    const auto note = [&](const std::string& at, const FileSystem& system) {
        struct stat info {};
        if (::stat(tree.path(at).c_str(), &info) == 0) systems[info.st_dev] = system;
    };
    note("", {false, "tmpfs"});
    for (const Mounted& mount : kMounts)
        note(mount.at, {std::string(mount.source).find(':') != std::string::npos, mount.type});
    return true;
}

// ---- Asking in every way ----------------------------------------------------

class EveryWay {
public:
    EveryWay(const TempTree& tree, const std::vector<File>& files) : tree_(tree), files_(files) {}

    void ask(const std::string& name, const Question& question) {
        SCOPED_TRACE(name);
        const Names right = answerOf(question, tree_, files_);
        FsQuery query;
        add(query, question, tree_);
        askInEveryWay(query, shared_, [&](int status, const CollectingWriter& writer, auto&) {
            EXPECT_EQ(status, 0);
            const Names answer = writer.sorted();
            found_ += answer.size();
            report("missing", right, answer);
            report("wrong", answer, right);
        });
    }
    std::size_t found() const { return found_; }

private:
    void report(const char* kind, const Names& some, const Names& others) const {
        Names difference;
        std::set_difference(some.begin(), some.end(), others.begin(), others.end(),
                            std::back_inserter(difference));
        for (const std::string& path : difference)
            ADD_FAILURE() << kind << " " << path.substr(tree_.path().size());
    }

    const TempTree& tree_;
    const std::vector<File>& files_;
    const CacheUser shared_;
    std::size_t found_ = 0;
};

TEST(EveryWay, FindsWhatAPlainWalkFinds) {
    const ScopedLocale locale("C.UTF-8");
    if (!locale.available()) GTEST_SKIP() << "no UTF-8 locale";
    const TempTree tree;
    withPrivateMounts([&] {
        std::map<dev_t, FileSystem> systems;
        if (!plantTree(tree, systems)) return kNotAllowed;
        setMountTablePath("/proc/self/mounts");
        FsFileInfo::setLargeFileSupport(true);
        std::vector<File> files;
        walk(tree.path(), "", systems, files);
        EveryWay ways(tree, files);
        for (const auto& [name, question] : kQuestions) ways.ask(name, question);
        EXPECT_GT(ways.found(), 1000U);
        return testing::Test::HasFailure() ? 1 : 0;
    });
}

}  // namespace
}  // namespace fscanner

#include "host.h"

#include <fcntl.h>

#include <cstdio>

#include "build_paths.h"
#include "fscanner/fs/fs.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/temp_files.h"
#include "fscanner/platform/linuxsync.h"

namespace fscanner {

namespace {

std::string temporaryPrefix;

// Names like those of the C library, where the test can see the files.
char* privateName(char*) {
    static char name[4096];
    for (int i = 0; i < 1000; ++i) {
        std::snprintf(name, sizeof name, "%s%d", temporaryPrefix.c_str(), i);
        if (::access(name, F_OK) != 0) return name;
    }
    return nullptr;
}

}  // namespace

FaultHost::FaultHost(const std::filesystem::path& parent) : tree(parent), place(parent) {
    place.directory("locks");
    place.directory("temporary");
    LinuxSharedMutex::setStorePath(place.path("locks").c_str());
    temporaryPrefix = place.path("temporary") + "/result";
    tempNameSource().libraryName = privateName;
}

FaultHost::~FaultHost() {
    LinuxSharedMutex::setStorePath("/tmp/");
    tempNameSource().libraryName = std::tmpnam;
}

void FaultHost::plant(unsigned directories, unsigned files) const {
    for (unsigned i = 0; i < directories; ++i) {
        const std::string path =
            "d" + std::to_string(i % 3) + "/e" + std::to_string(i) + "/f" + std::to_string(i % 2);
        for (unsigned j = 0; j < files; ++j)
            tree.file(path + "/name" + std::to_string(j) + (j % 2 ? ".h" : ".txt"), j);
    }
}

void FaultHost::askBeforeChanges(const std::function<void()>& ask) const {
    const std::string file = tree.path("d2/e2/f0/name0.txt"), directory = tree.path("d0");
    std::filesystem::rename(file, tree.path("elsewhere"));
    std::filesystem::rename(directory, tree.path("d1/elsewhere"));
    tree.file("d2/gone/below/f");
    tree.file("d1/gone");
    ask();
    std::filesystem::remove(tree.path("d1/gone"));
    std::filesystem::remove_all(tree.path("d2/gone"));
    std::filesystem::rename(tree.path("d1/elsewhere"), directory);
    std::filesystem::rename(tree.path("elsewhere"), file);
}

std::vector<std::string> FaultHost::walkFresh(const std::string& root) {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.is_symlink() || !entry.is_directory()) paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::unique_ptr<FsProvider> FaultHost::provider(bool compressed) const {
    std::unique_ptr<FsProvider> provider(createProvider(nullptr));
    provider->setOption(FS_OPTION_CACHE_DIRECTORY, cache.c_str());
    provider->setOption(FS_OPTION_COMPRESSED, compressed ? "true" : "false");
    provider->setOption(FS_OPTION_VERIFY, verifies ? "true" : "false");
    return provider;
}

void FaultHost::describe(FsQuery& query, const wchar_t* criteria) const {
    query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
    query.setQuery(criteria);
}

void FaultHost::describeParts(FsQuery& query, const std::vector<std::string>& names) const {
    for (const std::string& name : names)
        query.addIncludePath((L"*:" + tree.wide(name)).c_str(), true);
}

Answer FaultHost::ask(unsigned age, const wchar_t* criteria, bool compressed) const {
    FsQuery query;
    describe(query, criteria);
    return ask(query, age, compressed);
}

Answer FaultHost::ask(const FsQuery& query, unsigned age, bool compressed) const {
    Answer answer;
    const Listener heard;
    CollectingWriter writer;
    answer.status = provider(compressed)->executeQuery(writer, query, age, kMinute);
    answer.toldOfGaps = heard.toldOfGaps();
    answer.walked = heard.directories;
    answer.paths = writer.sorted();
    return answer;
}

std::unique_ptr<FsResultSetReader> FaultHost::askForFile(int& status, unsigned sortKey) const {
    FsQuery query;
    describe(query);
    const auto asked = provider();
    std::unique_ptr<FsResultSetReader> reader(fsExecuteQuery(asked.get(), query, 1440, 60));
    status = asked->lastStatus();
    if (reader && sortKey) reader->sort(sortKey, FS_SORT_DESCENDING, true);
    return reader;
}

std::vector<std::string> FaultHost::pathsOf(FsResultSetReader& reader) {
    std::vector<std::string> paths;
    FsFileInfo record;
    for (reader.moveFirst(); reader.getNext(record);) {
        std::wstring path = record.getPath() ? record.getPath() : L"(none)";
        if (!path.ends_with(L'/')) path += L'/';
        paths.push_back(toMultibyte(path + (record.getName() ? record.getName() : L"(none)")));
    }
    return paths;
}

void FaultHost::becomeFscan(std::vector<std::string> arguments, const std::string& output,
                            const std::string& errors) const {
    ::setenv("XDG_CACHE_HOME", place.path("home").c_str(), 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    ::dup2(::open(output.c_str(), flags, 0600), 1);
    ::dup2(::open(errors.c_str(), flags, 0600), 2);
    std::vector<char*> list = {const_cast<char*>("fscan")};
    for (std::string& argument : arguments) list.push_back(argument.data());
    list.push_back(nullptr);
    if (::chdir(place.path().c_str()) == 0) ::execv(FSCAN_PROGRAM, list.data());
    ::_exit(127);
}

std::vector<std::string> FaultHost::linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    return lines;
}

void FaultHost::forget() const {
    std::filesystem::remove_all(cache);
}

std::vector<std::string> FaultHost::leftovers() const {
    std::vector<std::string> names = walkFresh(place.path("locks"));
    for (const std::string& name : walkFresh(place.path("temporary"))) names.push_back(name);
    return names;
}

std::set<int> openDescriptors() {
    std::set<int> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        open.insert(std::atoi(entry.path().filename().c_str()));
    // The descriptor of the listing itself is closed by now.
    std::erase_if(open, [](int fd) { return ::fcntl(fd, F_GETFD) < 0; });
    return open;
}

}  // namespace fscanner

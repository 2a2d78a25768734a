// The library as others see it: its exported symbols and its public headers.

#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <vector>

#include "build_paths.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

struct Result {
    int status;
    std::string output;
};

Result run(const std::string& command) {
    Result result{-1, ""};
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return result;
    std::array<char, 4096> part;
    while (const std::size_t count = ::fread(part.data(), 1, part.size(), pipe))
        result.output.append(part.data(), count);
    result.status = ::pclose(pipe);
    return result;
}

std::set<std::string> linesOf(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        if (!line.empty() && line[0] != '#') lines.insert(line);
    return lines;
}

// Constructors and destructors have several symbols of one readable name, which
// compilers choose differently; the readable names are what is reviewed.
std::set<std::string> exportedNames() {
    const Result nm = run("nm -D -C --defined-only " FSCANNER_LIBRARY);
    EXPECT_EQ(nm.status, 0) << nm.output;
    std::set<std::string> names;
    for (const std::string& line : linesOf(nm.output)) {
        // Value, kind, name, version; the line of the version itself is absolute.
        std::string name = line.substr(line.find(' ') + 3);
        if (name.rfind("@@") != name.npos) names.insert(name.substr(0, name.rfind("@@")));
    }
    return names;
}

TEST(PublicFace, ExportsWhatWasReviewed) {
    const std::set<std::string> exported = exportedNames();
    const std::set<std::string> reviewed =
        linesOf(readWholeFile(FSCANNER_SOURCE_DIR "/tests/abi/exported_symbols.txt"));
    for (const std::string& name : exported)
        EXPECT_TRUE(reviewed.contains(name)) << "not in the list: " << name;
    for (const std::string& name : reviewed)
        EXPECT_TRUE(exported.contains(name)) << "no longer exported: " << name;
}

std::vector<std::string> publicHeaders() {
    std::vector<std::string> headers;
    std::istringstream list(FSCANNER_PUBLIC_HEADERS);
    for (std::string header; std::getline(list, header, ':');) headers.push_back(header);
    return headers;
}

// The headers are compiled where no others exist, as hosts compile them.
TEST(PublicFace, HeadersCompileAloneAndIncludeNoPrivateOnes) {
    const TemporaryDirectory directory;
    const auto headers = publicHeaders();
    ASSERT_GT(headers.size(), 20u);
    std::string sources;
    for (const std::string& header : headers) {
        const auto copy = directory.path() / "fscanner" / header;
        std::filesystem::create_directories(copy.parent_path());
        std::filesystem::copy_file(FSCANNER_SOURCE_DIR "/src/fscanner/" + header, copy);
        std::string name = header;
        std::replace(name.begin(), name.end(), '/', '-');
        const std::string source = directory / (name + ".cpp");
        // Twice: a header guards itself.
        const std::string include = "#include <fscanner/" + header + ">\n";
        writeWholeFile(source, include + include);
        sources += " " + source;
    }
    const Result compiled =
        run(FSCANNER_COMPILER " -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I " +
            directory.path().string() + sources);
    EXPECT_EQ(compiled.status, 0) << compiled.output;
}

}  // namespace
}  // namespace fscanner

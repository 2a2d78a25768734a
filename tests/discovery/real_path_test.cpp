#include <gtest/gtest.h>

#include <random>

#include "fixtures.h"
#include "support/current_directory.h"

namespace fscanner {
namespace {

namespace stdfs = std::filesystem;

/// Works inside a temporary directory whose path has no links.
class RealPath : public testing::Test {
protected:
    void link(const std::string& target, const std::string& name) {
        stdfs::create_symlink(target, root_ / name);
    }
    /// The result with the root written as "@"; "-" for none.
    std::string real(const std::string& path, bool resolveLinks = true) const {
        const auto result = PathHelper::realPath(path.c_str(), resolveLinks);
        if (!result) return "-";
        const std::string root = root_.string();
        return result->starts_with(root) ? "@" + result->substr(root.size()) : *result;
    }
    std::string inRoot(const std::string& name) const { return (root_ / name).string(); }

    const TemporaryDirectory directory_;
    const stdfs::path root_ = stdfs::canonical(directory_.path());
    const CurrentDirectory current_{root_};
};

TEST_F(RealPath, NormalisesTextAndFollowsNoLinkUnasked) {
    link("/", "slash");
    link("loop", "loop");
    const std::pair<const char*, std::string> cases[] = {{"///", "/"},
                                                         {"/..", "/"},
                                                         {"/../../x/..", "/"},
                                                         {"//no//./such/", "/no/such"},
                                                         {"/no/../such", "/such"},
                                                         {"a/./../b", "@/b"},
                                                         {"", "@"},
                                                         {"no/such/.", "@/no/such"},
                                                         {"/no/*/tmp", "/no/*/tmp"},
                                                         {"/...", "/..."},
                                                         {"slash/..", "@"},
                                                         {"loop/x", "@/loop/x"}};
    for (const auto& [path, expected] : cases) EXPECT_EQ(real(path, false), expected) << path;
    EXPECT_EQ(real("a/../../b", false), root_.parent_path() / "b");
    EXPECT_EQ(PathHelper::realPath(static_cast<const char*>(nullptr), false), std::nullopt);
}

TEST_F(RealPath, GivesUpAfterThirtyTwoLinks) {
    stdfs::create_directory(root_ / "l0");
    for (int i = 1; i <= 33; ++i) link("l" + std::to_string(i - 1), "l" + std::to_string(i));
    link("loop", "loop");
    EXPECT_EQ(real("l32"), "@/l0");
    EXPECT_EQ(real("l33"), "-");
    EXPECT_EQ(real("l16/../l16"), "@/l0");
    EXPECT_EQ(real("l16/../l17"), "-");
    EXPECT_EQ(real("loop"), "-");
}

TEST_F(RealPath, HoldsAtMost1023Bytes) {
    const std::string longest = "/" + std::string(1022, 'x');
    EXPECT_EQ(real(longest, false), longest);
    EXPECT_EQ(real(longest + "x", false), "-");
    EXPECT_EQ(real(longest + "/", false), "-");
    const std::size_t room = 1023 - root_.string().size() - 1;
    EXPECT_EQ(real(std::string(room, 'x'), false), "@/" + std::string(room, 'x'));
    EXPECT_EQ(real(std::string(room + 1, 'x'), false), "-");
    // The limit applies to a link's target together with the rest of the path.
    link("/" + std::string(899, '/'), "slashes");
    EXPECT_EQ(real("slashes" + std::string(123, '/')), "/");
    EXPECT_EQ(real("slashes" + std::string(124, '/')), "-");
}

TEST_F(RealPath, FallsBackToWhatCanBeHad) {
    stdfs::create_directory(root_ / "caf\xe9");
    link("caf\xe9", "l");
    const auto built = [&](const std::string& path) {
        return toMultibyte(PathHelper::buildRealPath(toWide(path).c_str()));
    };
    EXPECT_EQ(built("l/"), inRoot("caf\xe9"));
    EXPECT_EQ(built("l/*/./x"), inRoot("l/*/x"));
    const std::string tooLong = "/l/" + std::string(1100, 'x');
    EXPECT_EQ(built(tooLong), tooLong);
    EXPECT_EQ(PathHelper::buildResolvedPath(L"/a/"), L"/a");
    EXPECT_EQ(PathHelper::buildResolvedPath(L"/"), L"/");
}

TEST_F(RealPath, AgreesWithTheSystemOnRandomTrees) {
    std::mt19937 random(4);
    const std::vector<std::string> names = {"_a", "_b", "_c", "_l", "_m", "_n", ".", "..", ""};
    const auto randomPath = [&] {
        std::string path = random() % 4 == 0 ? root_.string() : names[random() % 6];
        for (auto length = random() % 5; length > 0; --length) {
            path += "/" + names[random() % names.size()];
        }
        return path;
    };
    for (const char* outer : {"_a", "_b", "_c"}) {
        for (const char* inner : {"_a", "_b"}) stdfs::create_directories(root_ / outer / inner);
        link(randomPath(), std::string(outer) + "/_l");
        link(randomPath(), std::string(outer) + "/_a/_m");
        link(randomPath(), std::string(outer) + "/_b/_n");
    }
    for (const char* name : {"_l", "_m", "_n"}) link(randomPath(), name);
    int resolved = 0;
    for (int i = 0; i < 3000; ++i) {
        const std::string path = randomPath();
        char* expected = realpath(path.c_str(), nullptr);
        const auto result = PathHelper::realPath(path.c_str(), true);
        EXPECT_EQ(result.value_or("-"), expected ? expected : "-") << path;
        resolved += expected != nullptr;
        free(expected);
    }
    EXPECT_GT(resolved, 500);
}

TEST(PathText, ReducesToAncestors) {
    const auto chain = [](const wchar_t* path) {
        std::wstring text;
        for (const PathAncestor& ancestor : PathHelper::pathReducer(path)) {
            text += ancestor.path + L"=" + ancestor.name + L" ";
        }
        return text;
    };
    EXPECT_EQ(chain(L"//a///b/"), L"/a/b=b /a=a /=/ ");
    EXPECT_EQ(chain(L"a/b"), L"a/b=b a=a ");
    EXPECT_EQ(chain(L"/"), L"/=/ ");
    EXPECT_EQ(chain(L""), L"");
}

TEST(PathText, RelatesByWholeComponents) {
    for (const auto& [path, other, relation] : {std::tuple(L"/a/b", L"/a", PathRelation::INSIDE),
                                                {L"/a", L"/a/b", PathRelation::AROUND},
                                                {L"/a/", L"/a", PathRelation::SAME},
                                                {L"/ab", L"/a", PathRelation::APART},
                                                {L"/a", L"/", PathRelation::INSIDE},
                                                {L"/", L"/", PathRelation::SAME},
                                                {L"a", L"/", PathRelation::APART}})
        EXPECT_EQ(PathHelper::path_components_analyzer(path, other), relation) << path << other;
    EXPECT_EQ(componentCount(L"//a//b/"), 2U);
    EXPECT_EQ(componentCount(L"/"), 0U);
}

TEST(PathText, ExpandsNoVariables) {
    wchar_t out[6] = L"#####";
    EXPECT_EQ(PathHelper::expand_path_variable(L"ab%NAME%", out, 5), 0);
    EXPECT_STREQ(out, L"ab%N") << "cut to the room";
    EXPECT_EQ(PathHelper::expand_path_variable(L"", out, 5), -1);
    EXPECT_EQ(PathHelper::expand_path_variable(nullptr, out, 5), -1);
}

}  // namespace
}  // namespace fscanner

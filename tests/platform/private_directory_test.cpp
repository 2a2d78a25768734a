#include "fscanner/platform/private_directory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <set>

#include "support/child_process.h"
#include "support/current_directory.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kRoot = 0;
constexpr gid_t kUsers = 100;

/// A user with a group of his own name.
const passwd* privateUser() {
    const passwd* const user = ::getpwnam("games");
    const group* const own = user ? ::getgrnam("games") : nullptr;
    return own && own->gr_gid == user->pw_gid ? user : nullptr;
}

class PrivateDirectory : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "only root can give directories away";
        if (!privateUser()) GTEST_SKIP() << "no user with a group of his own";
        user = privateUser()->pw_uid;
        fs::permissions(place.path(), fs::perms(0755));
    }
    void make(const char* name, uid_t owner, mode_t mode, gid_t ofGroup = 0) const {
        fs::create_directories(place / name);
        ASSERT_EQ(::chown((place / name).c_str(), owner, ofGroup), 0);
        ASSERT_EQ(::chmod((place / name).c_str(), mode), 0);
    }
    void link(const char* target, const char* name, uid_t owner) const {
        fs::create_symlink(target, place / name);
        ASSERT_EQ(::lchown((place / name).c_str(), owner, owner), 0);
    }
    std::set<std::string> content() const {
        std::set<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(place.path()))
            names.insert(entry.path());
        return names;
    }
    /// Asks as that user. Returns the problem, without the directory of the test.
    std::string problem(const std::string& path, uid_t as, Missing missing = Missing::make) const {
        std::array<int, 2> told{};
        if (::pipe(told.data()) != 0) return "no pipe";
        const int result = inChild([&] {
            if (as != 0 && (::setgroups(0, nullptr) != 0 || ::setgid(privateUser()->pw_gid) != 0 ||
                            ::setuid(as) != 0))
                return 1;
            const std::string text = privateDirectoryProblem(place / path, missing);
            return ::write(told[1], text.data(), text.size()) == std::ssize(text) ? 0 : 1;
        });
        ::close(told[1]);
        std::array<char, 4096> text{};
        const ssize_t length = ::read(told[0], text.data(), text.size());
        ::close(told[0]);
        if (result != 0 || length < 0) return "no answer";
        std::string said(text.data(), static_cast<std::size_t>(length));
        return said.starts_with(place.path().native()) ? said.substr((place / "").size()) : said;
    }

    TemporaryDirectory place{"/tmp"};
    uid_t user = 0;
};

TEST_F(PrivateDirectory, NobodyElseDecidesWhereAPathLeads) {
    const gid_t own = privateUser()->pw_gid;
    make("root", kRoot, 0755);
    make("open", kRoot, 0777);
    make("group", kRoot, 0775, own);
    make("sticky", kRoot, 01777);
    make("home", user, 0755, own);
    make("home/roots", kRoot, 0700);
    make("sticky/his", user, 0700, own);
    make("sticky/roots", kRoot, 0700);
    make("home775", user, 0775, own);
    make("home2775", user, 02775, own);
    make("homeOfMany", user, 0775, kUsers);
    make("home777", user, 0777, own);
    make("homeWithList", user, 0775, own);
    writeWholeFile(place / "root/file", "");
    link("root", "way", kRoot);
    link("home", "wayToHim", kRoot);
    link("home775", "hisWay", user);
    link("../home775", "sticky/ownWay", user);
    link("loop", "loop", kRoot);

    constexpr const char* foreign = " belongs neither to root nor to the user (owner ";
    constexpr const char* open = " can be written by others (owner ";
    struct Case {
        const char* path;
        uid_t as;
        std::string problem;  // its start; empty: none
    };
    std::vector<Case> table = {
        {"root/a/b", kRoot, ""},
        {"root/../root/./a//c", kRoot, ""},
        {"way/d", kRoot, ""},
        {"wayToHim/a", kRoot, std::string("home") + foreign},
        {"hisWay/a", kRoot, "hisWay is a link of neither root nor the user (owner "},
        {"home/a/b", kRoot, std::string("home") + foreign},
        {"home", kRoot, std::string("home") + foreign},
        {"home/roots/a", kRoot, std::string("home") + foreign},
        {"home/../root/a", kRoot, std::string("home") + foreign},
        {"open/a", kRoot, std::string("open") + open},
        {"group/a", kRoot, std::string("group") + open},
        {"sticky/a", kRoot, ""},
        {"sticky/roots/a", kRoot, ""},
        {"sticky/his/a", kRoot, std::string("sticky/his") + foreign},
        {"sticky/ownWay/a", kRoot, "sticky/ownWay is a link of neither root nor the user"},
        {"sticky", kRoot, std::string("sticky") + open},
        {"root/file", kRoot, "root/file is no directory"},
        {"root/file/a", kRoot, "root/file is no directory"},
        {"loop/a", kRoot, "loop: Too many levels"},
        {"home/.cache/a", user, ""},
        {"home775/.cache/a", user, ""},
        {"home775", user, ""},  // not empty, and so it stays
        {"home2775/.cache/a", user, ""},
        {"sticky/ownWay/b", user, ""},
        {"sticky/his/a", user, ""},
        {"sticky/b", user, ""},
        {"hisWay/a", user, ""},
        {"homeOfMany/a", user, std::string("homeOfMany") + open},
        {"home777/a", user, std::string("home777") + open},
        {"sticky/roots/a", user, "sticky/roots"},
        {"root/x", user, "root/x cannot be made: Permission denied"},
    };
    // An entry for another user, where the file system has such lists.
    constexpr std::array<unsigned char, 44> list = {
        2, 0,   0,   0,   1,   0,   7,  0, 255, 255, 255, 255, 2,   0,  7,
        0, 254, 255, 0,   0,   4,   0,  7, 0,   255, 255, 255, 255, 16, 0,
        7, 0,   255, 255, 255, 255, 32, 0, 5,   0,   255, 255, 255, 255};
    if (::setxattr((place / "homeWithList").c_str(), "system.posix_acl_access", list.data(),
                   list.size(), 0) == 0)
        table.push_back({"homeWithList/a", user, std::string("homeWithList") + open});

    for (const auto& [path, as, expected] : table) {
        const std::set<std::string> before = content();
        const std::string looked = problem(path, as, Missing::accept);
        EXPECT_EQ(content(), before) << path;
        const std::string said = problem(path, as);
        if (expected.empty()) {
            struct stat info {};
            EXPECT_EQ(said, "") << path;
            EXPECT_EQ(looked, "") << path;
            ASSERT_EQ(::stat((place / path).c_str(), &info), 0) << path;
            EXPECT_EQ(info.st_uid, as) << path;
            std::error_code notEmpty;
            fs::remove(place / path, notEmpty);
        } else {
            EXPECT_THAT(said, testing::StartsWith(expected)) << path << " by " << as;
            EXPECT_EQ(content(), before) << path << ": nothing is made";
        }
    }
}

TEST_F(PrivateDirectory, ARelativePathBeginsInTheCurrentDirectory) {
    make("his", user, 0777);
    make("mine", kRoot, 0700);
    for (const char* directory : {"mine", "his"}) {
        const CurrentDirectory there(place / directory);
        privateDirectoryProblem("a/b", Missing::make);
    }
    EXPECT_TRUE(fs::exists(place / "mine/a/b"));
    EXPECT_FALSE(fs::exists(place / "his/a"));
}

// In a user's container, all that root owns outside belongs to "nobody".
TEST_F(PrivateDirectory, AUserNamespaceDoesNotKnowTheOwnerOfTheRoot) {
    make("home", user, 0700, privateUser()->pw_gid);
    const int result = inChild([this] {
        if (::setgid(privateUser()->pw_gid) != 0 || ::setuid(user) != 0) return 2;
        ::prctl(PR_SET_DUMPABLE, 1);  // otherwise /proc/self is root's
        if (::unshare(CLONE_NEWUSER) != 0) return 2;
        const int map = ::open("/proc/self/uid_map", O_WRONLY);
        const std::string line = "0 " + std::to_string(user) + " 1";
        if (::write(map, line.data(), line.size()) != std::ssize(line)) return 2;
        struct stat root {};
        if (::stat("/", &root) != 0 || root.st_uid == 0) return 2;
        const std::string wrong = privateDirectoryProblem(place / "home/a", Missing::make);
        if (!wrong.empty()) ADD_FAILURE() << wrong;
        // The last directory has to be owned by us.
        const bool accepted = privateDirectoryProblem(place.path(), Missing::accept).empty();
        return wrong.empty() && !accepted ? 0 : 1;
    });
    if (result == 2) GTEST_SKIP() << "no user namespace can be made";
    EXPECT_EQ(result, 0);
}

TEST(UserMap, NamesRanges) {
    constexpr const char* whole = "         0          0 4294967295\n";
    constexpr const char* container = "0 1000 1\n1 100000 65536\n";
    for (const auto& [map, user] : {std::pair(whole, 65534U), {container, 65536U}})
        EXPECT_TRUE(mapsUser(map, user)) << map;
    for (const auto& [map, user] : {std::pair(container, 65537U), {"0 1000 1\n", 1U}, {"x", 0U}})
        EXPECT_FALSE(mapsUser(map, user)) << map;
}

}  // namespace
}  // namespace fscanner

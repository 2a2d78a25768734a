#include "fscanner/platform/private_directory.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <vector>

#include "fscanner/platform/descriptor.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

namespace {

constexpr int kMostLinks = 40;  // as the kernel follows

// Calls one of the getXXX_r family with more and more room.
template <typename Entry, typename Call>
bool lookUp(Entry& entry, std::vector<char>& room, Call call) {
    for (room.resize(4096); room.size() <= (1U << 20); room.resize(room.size() * 2)) {
        Entry* found = nullptr;
        const int error = call(&entry, room.data(), room.size(), &found);
        if (error != ERANGE) return error == 0 && found != nullptr;
    }
    return false;
}

bool lookUpUser(passwd& account, std::vector<char>& room, uid_t user) {
    return lookUp(account, room, [&](auto... to) { return getpwuid_r(user, to...); });
}

// Whether a group is the user's own, as most systems make one for each: it has his name, is
// his first group, and has no other member.
bool isPrivateGroup(gid_t group, uid_t user) {
    std::vector<char> userRoom;
    std::vector<char> groupRoom;
    passwd account{};
    ::group members{};
    const bool known =
        lookUpUser(account, userRoom, user) &&
        lookUp(members, groupRoom, [&](auto... room) { return getgrgid_r(group, room...); });
    if (!known || account.pw_gid != group || std::strcmp(account.pw_name, members.gr_name) != 0)
        return false;
    for (char** member = members.gr_mem; *member != nullptr; ++member)
        if (std::strcmp(*member, account.pw_name) != 0) return false;
    return true;
}

// With one, the group's bits are the most that anybody in the list may do.
bool hasAccessList(const std::string& path) {
    return lgetxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

// The user that stands for all whom a user namespace does not know; nobody where this process
// is in none.
struct UnknownUser {
    std::optional<uid_t> id;
    bool mapped = false;  // there may be a real one of that number, too

    static UnknownUser read() {
        const std::string map = readWholeFile("/proc/self/uid_map", 1U << 16).value_or("");
        constexpr unsigned last = 0U - 2;
        if (map.empty() || (mapsUser(map, 0) && mapsUser(map, last))) return {};
        const std::string text = readWholeFile("/proc/sys/kernel/overflowuid", 64).value_or("");
        const auto id = static_cast<uid_t>(std::strtoul(text.c_str(), nullptr, 10));
        if (text.empty()) return {};
        return {id, mapsUser(map, id)};
    }
};

// Goes down a path by descriptors, so that what was looked at is what is entered.
class Descent {
public:
    explicit Descent(Missing missing) : missing_(missing) {}

    std::string follow(const std::string& path) {
        push(path);
        std::string problem = enterRoot();
        while (problem.empty() && !rest_.empty() && !ended_) problem = step();
        return problem;
    }

    /// Whether others were the problem.
    bool foundOthers() const { return others_; }

private:
    void push(std::string_view path);
    std::string enterRoot();
    std::string step();
    std::string follow(const Descriptor& link, const struct stat& info, const std::string& path);
    Descriptor openNext(const std::string& name) const;
    static bool isTrusted(uid_t owner, bool mayBeUnknown, bool root);
    std::string checkDirectory(const struct stat& info, const std::string& path);
    std::string others(const std::string& path, const char* what, const struct stat& info);
    std::string below(const std::string& name) const;

    Missing missing_;
    std::vector<std::string> rest_;  // the next component last
    Descriptor directory_;
    std::string path_;  // of that
    int links_ = 0;
    bool ended_ = false;  // nothing below is there
    bool others_ = false;
};

void Descent::push(std::string_view path) {
    while (!path.empty()) {
        const std::size_t slash = path.rfind('/');
        const std::string_view name = path.substr(slash == path.npos ? 0 : slash + 1);
        if (!name.empty() && name != ".") rest_.emplace_back(name);
        path = path.substr(0, slash == path.npos ? 0 : slash);
    }
}

std::string Descent::enterRoot() {
    path_ = "/";
    directory_ = openAt(AT_FDCWD, "/", O_PATH | O_DIRECTORY);
    struct stat info {};
    if (!directory_ || fstat(directory_.get(), &info) != 0)
        return path_ + ": " + std::strerror(errno);
    return checkDirectory(info, path_);
}

Descriptor Descent::openNext(const std::string& name) const {
    return openAt(directory_.get(), name.c_str(), O_PATH | O_NOFOLLOW);
}

std::string Descent::below(const std::string& name) const {
    if (name != "..") return path_ + (path_ == "/" ? "" : "/") + name;
    const std::size_t slash = path_.rfind('/');
    return slash == 0 ? "/" : path_.substr(0, slash);
}

std::string Descent::step() {
    const std::string name = std::move(rest_.back());
    rest_.pop_back();
    const std::string path = below(name);
    Descriptor next = openNext(name);
    if (!next && errno == ENOENT && missing_ == Missing::accept) {
        ended_ = true;
        return "";
    }
    // Who makes it at the same time is looked at like who made it before.
    if (!next && errno == ENOENT) {
        if (mkdirat(directory_.get(), name.c_str(), S_IRWXU) != 0 && errno != EEXIST)
            return path + " cannot be made: " + std::strerror(errno);
        next = openNext(name);
    }
    struct stat info {};
    if (!next || fstat(next.get(), &info) != 0) return path + ": " + std::strerror(errno);
    if (S_ISLNK(info.st_mode)) return follow(next, info, path);
    if (!S_ISDIR(info.st_mode)) return path + " is no directory";
    std::string problem = checkDirectory(info, path);
    directory_ = std::move(next);
    path_ = path;
    return problem;
}

std::string Descent::follow(const Descriptor& link, const struct stat& info,
                            const std::string& path) {
    if (!isTrusted(info.st_uid, true, false))
        return others(path, "is a link of neither root nor the user", info);
    if (++links_ > kMostLinks) return path + ": " + std::strerror(ELOOP);
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlinkat(link.get(), "", target.data(), target.size());
    if (length <= 0) return path + ": " + std::strerror(length < 0 ? errno : ENOENT);
    const std::string_view text(target.data(), static_cast<std::size_t>(length));
    push(text);
    return text.starts_with('/') ? enterRoot() : "";
}

bool Descent::isTrusted(uid_t owner, bool mayBeUnknown, bool root) {
    if (owner == 0 || owner == geteuid()) return true;
    if (!mayBeUnknown) return false;
    const UnknownUser unknown = UnknownUser::read();
    return unknown.id == owner && (root || !unknown.mapped);
}

std::string Descent::others(const std::string& path, const char* what, const struct stat& info) {
    others_ = true;
    std::array<char, 64> facts{};
    std::snprintf(facts.data(), facts.size(), " (owner %u, mode %04o)",
                  static_cast<unsigned>(info.st_uid), static_cast<unsigned>(info.st_mode & 07777));
    return path + " " + what + facts.data();
}

std::string Descent::checkDirectory(const struct stat& info, const std::string& path) {
    const bool last = rest_.empty();
    if (!isTrusted(info.st_uid, !last, path == "/"))
        return others(path, "belongs neither to root nor to the user", info);
    const mode_t writers = info.st_mode & (S_IWGRP | S_IWOTH);
    if (writers == 0 || (!last && (info.st_mode & S_ISVTX) != 0)) return "";
    if (writers == S_IWGRP && isPrivateGroup(info.st_gid, info.st_uid) && !hasAccessList(path))
        return "";
    return others(path, "can be written by others", info);
}

}  // namespace

std::string privateDirectoryProblem(const std::string& path, Missing missing) {
    if (path.starts_with('/')) return Descent(missing).follow(path);
    std::array<char, PATH_MAX> current{};
    if (getcwd(current.data(), current.size()) == nullptr)
        return "the current directory: " + std::string(std::strerror(errno));
    return Descent(missing).follow(std::string(current.data()) + "/" + path);
}

bool mayBeExchanged(const std::string& path) {
    Descent descent(Missing::accept);
    descent.follow(path);
    return descent.foundOthers();
}

bool mapsUser(std::string_view map, unsigned user) {
    std::istringstream ranges{std::string(map)};
    unsigned long long first = 0;
    unsigned long long outside = 0;
    unsigned long long count = 0;
    while (ranges >> first >> outside >> count)
        if (user >= first && user - first < count) return true;
    return false;
}

// ---- The user's cache -------------------------------------------------------

namespace {

std::string absoluteVariable(const char* name) {
    const char* value = secure_getenv(name);
    return value && *value == '/' ? value : "";
}

// What root makes in another's home, as under "sudo -E", that user cannot use; and what
// lies there, he can exchange.
std::string placeOf(const char* variable) {
    std::string path = absoluteVariable(variable);
    const bool unsafe = geteuid() == 0 && !path.empty() && mayBeExchanged(path + "/fscanner");
    return unsafe ? "" : path;
}

std::string homeOfUser() {
    std::string home = placeOf("HOME");
    if (!home.empty()) return home;
    std::vector<char> room;
    passwd account{};
    const bool known = lookUpUser(account, room, geteuid());
    return known && account.pw_dir && *account.pw_dir == '/' ? account.pw_dir : "";
}

}  // namespace

std::string userName() {
    std::vector<char> room;
    passwd account{};
    return lookUpUser(account, room, geteuid()) ? account.pw_name : "";
}

std::string userCacheHome() {
    std::string chosen = placeOf("XDG_CACHE_HOME");
    if (!chosen.empty()) return chosen;
    const std::string home = homeOfUser();
    return home.empty() ? "" : home + "/.cache";
}

}  // namespace fscanner

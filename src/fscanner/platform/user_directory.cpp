#include "fscanner/platform/user_directory.h"

#include <langinfo.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <vector>

#include "fscanner/platform/ownership.h"

namespace fscanner {

namespace {

std::string absoluteVariable(const char* name) {
    const char* value = secure_getenv(name);
    return value && *value == '/' ? value : "";
}

// What root makes in another's home, as under "sudo -E", that user cannot use; and what
// lies there, he can exchange.
bool mayLeadRoot(std::string path) {
    struct stat info {};
    while (stat(path.c_str(), &info) != 0 && path.size() > 1)
        path.erase(std::max<std::size_t>(path.rfind('/'), 1));
    return geteuid() != 0 || info.st_uid == 0;
}

std::string placeOf(const char* variable) {
    std::string path = absoluteVariable(variable);
    return mayLeadRoot(path) ? path : "";
}

std::string homeOfUser() {
    std::string home = placeOf("HOME");
    if (!home.empty()) return home;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return "";
    return entry.pw_dir && *entry.pw_dir == '/' ? entry.pw_dir : "";
}

}  // namespace

std::string userCacheHome() {
    std::string chosen = placeOf("XDG_CACHE_HOME");
    if (!chosen.empty()) return chosen;
    const std::string home = homeOfUser();
    return home.empty() ? "" : home + "/.cache";
}

std::string makePrivateDirectories(const std::string& path) {
    for (std::size_t at = path.find('/', 1);; at = path.find('/', at + 1)) {
        const std::string part = path.substr(0, at);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            return part + " cannot be made: " + std::strerror(errno);
        if (at == std::string::npos) return "";
    }
}

std::string privacyProblem(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return path + ": " + std::strerror(errno);
    if (!S_ISDIR(info.st_mode)) return path + " is no directory";
    const char* const problem = ownershipProblem(info);
    if (!problem) return "";
    std::array<char, 64> facts{};
    std::snprintf(facts.data(), facts.size(), " (owner %u, mode %04o)",
                  static_cast<unsigned>(info.st_uid), static_cast<unsigned>(info.st_mode & 07777));
    return path + " " + problem + facts.data();
}

// Turkish and its neighbours have another capital for "i".
std::string localeWord() {
    std::string word = nl_langinfo(CODESET);
    for (char& c : word)
        if (c == '/' || c == ':') c = '_';
    return std::towupper(L'i') == L'I' ? word : word + "-dotted";
}

}  // namespace fscanner

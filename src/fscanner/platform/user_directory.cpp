#include "fscanner/platform/user_directory.h"

#include <langinfo.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <cwctype>
#include <vector>

#include "fscanner/platform/private_directory.h"

namespace fscanner {

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

// Turkish and its neighbours have another capital for "i".
std::string localeWord() {
    std::string word = nl_langinfo(CODESET);
    for (char& c : word)
        if (c == '/' || c == ':') c = '_';
    return std::towupper(L'i') == L'I' ? word : word + "-dotted";
}

}  // namespace fscanner

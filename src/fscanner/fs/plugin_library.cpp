#include "fscanner/fs/plugin_library.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "fscanner/common/debug.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/platform/shared_library.h"

namespace fscanner {

const char* createProviderSymbol = "createProvider";
const char* createMonitorSymbol = "createMonitor";

namespace {

constexpr const char* kSuffix = ".so";
constexpr unsigned kMaxName = 2000;

void* openTrusted(const char* name) {
    std::string path;
    std::string error = distrust(name, path);
    void* library = error.empty() ? openLibrary(path.c_str(), error) : nullptr;
    if (library == nullptr) debug("*** Error: cannot load DLL '%s' (%s)\n", name, error.c_str());
    return library;
}

}  // namespace

int adjustDynamicLibraryName(char* out, unsigned int outSize, const char* baseName,
                             const FsConfig* config) {
    const std::string prefix = config->getString("fscanner", "home", ".") + "/";
    debug("DLL prefix = %s\n", prefix.c_str());
    if (baseName == nullptr || *baseName == '\0') return -1;
    if (outSize <= prefix.size() + std::strlen(baseName) + std::strlen(kSuffix)) return -1;
    std::snprintf(out, outSize, "%s%s%s", prefix.c_str(), baseName, kSuffix);
    return 0;
}

void* loadLibraryAndFactory(const char* baseName, const FsConfig* config, const char* symbol,
                            void** handleOut) {
    std::array<char, kMaxName> name;
    void* library = nullptr;
    if (adjustDynamicLibraryName(name.data(), kMaxName, baseName, config) == 0)
        library = openTrusted(name.data());
    void* factory = library != nullptr ? findSymbol(library, symbol) : nullptr;
    if (handleOut != nullptr) *handleOut = factory != nullptr ? library : nullptr;
    return factory;
}

}  // namespace fscanner

#include "fscanner/fs/fs_loader.h"

#include <cerrno>

#include "fscanner/common/debug.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/no_throw.h"
#include "fscanner/fs/plugin_library.h"

namespace fscanner {

// The destructors are defined here so that the virtual tables of both interfaces are emitted
// in this file only.
FsProvider::~FsProvider() = default;
FsMonitor::~FsMonitor() = default;

int FsMonitor::watch(const wchar_t*, std::wstring& problem) {
    problem = L"this monitor watches nothing";
    return ENOSYS;
}

void FsMonitor::unwatch(const wchar_t*) {}

int FsMonitor::descriptor() const {
    return -1;
}

int FsMonitor::take(FS_Queue&) {
    return 0;
}

namespace {

// An exception of the plug-in's factory is stopped here, too.
template <class Product>
Product* create(const char* baseName, const FsConfig* config, const char* symbol) {
    if (config == nullptr) {
        debug("FsLoader - no configuration\n");
        return nullptr;
    }
    using Factory = Product* (*)(const FsConfig*);
    return noThrow("FsLoader", [&]() -> Product* {
        const auto factory =
            reinterpret_cast<Factory>(loadLibraryAndFactory(baseName, config, symbol, nullptr));
        return factory != nullptr ? factory(config) : nullptr;
    });
}

}  // namespace

FsProvider* FsLoader::loadFsProvider(const char* baseName, const FsConfig* config) {
    debug("FsLoader::loadFsProvider - entering...\n");
    FsProvider* provider = create<FsProvider>(baseName, config, createProviderSymbol);
    debug("FsLoader::loadFsProvider - exit\n");
    return provider;
}

FsMonitor* FsLoader::loadFsMonitor(const char* baseName, const FsConfig* config) {
    debug("FsLoader::loadFsMonitor - entering...\n");
    FsMonitor* monitor = create<FsMonitor>(baseName, config, createMonitorSymbol);
    debug("FsLoader::loadFsMonitor - exit\n");
    return monitor;
}

}  // namespace fscanner

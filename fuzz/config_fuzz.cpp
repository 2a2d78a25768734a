// A configuration of any text: every setting has a section and a key, and numbers are
// read or refused.

#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/tav_cfg.h"
#include "fuzz.h"
#include "support/environment.h"
#include "support/temporary_directory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fscanner;
    static const TemporaryDirectory directory(memoryDirectory());
    const std::string text(asText(data, size));
    const ConfigSettings settings = parseConfig(text, "/d/file");
    for (const auto& [key, value] : settings.values) {
        const std::size_t dot = key.find('.');
        require(dot != key.npos && dot + 1 < key.size());
        for (const char c : {'\n', '\0'})
            require(key.find(c) == key.npos && value.find(c) == value.npos);
    }
    static EnvironmentVariable place("FSCANNER_CONFIG");
    place.set(directory / "conf");
    writeWholeFile(directory / "conf", text);
    const FsConfig_TAV config;
    config.getInteger("s", "n", -1);
    const auto home = settings.values.find("fscanner.home");
    if (home == settings.values.end()) return 0;
    const std::string value = config.getString("fscanner", "home", "");
    // "$ORIGIN" stands for another directory there.
    require(value == home->second || home->second.starts_with("/d"));
    return 0;
}

#include "fscanner/fs/fs_config.h"

#include <cstdint>
#include <string_view>

#include "fscanner/fs/no_throw.h"
#include "fscanner/fs/tav_cfg.h"

namespace fscanner {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The factor of a suffix; 0 for a text that is no suffix.
std::uint32_t multiplier(std::string_view suffix) {
    if (suffix.empty()) return 1;
    if (suffix == "K" || suffix == "k") return 1024;
    return suffix == "M" || suffix == "m" ? 1048576 : 0;
}

// Computes with unsigned numbers: numbers wrap at 32 bits, and overflow of a signed number is
// undefined.
int parseInteger(std::string_view text, int defaultValue) {
    std::uint32_t sign = 1;
    for (; text.starts_with('+') || text.starts_with('-'); text.remove_prefix(1))
        if (text[0] == '-') sign = 0 - sign;
    if (text.empty() || !isDigit(text[0])) return defaultValue;
    std::uint32_t value = 0;
    for (; !text.empty() && isDigit(text[0]); text.remove_prefix(1))
        value = value * 10 + static_cast<std::uint32_t>(text[0] - '0');
    const std::uint32_t factor = multiplier(text);
    return factor == 0 ? defaultValue : static_cast<int>(value * sign * factor);
}

// The result of `find`, or the default if that is empty or `find` throws. Copying the default
// may throw too, hence the second guard.
template <class Find>
std::string textOr(const char* defaultValue, const char* where, Find find) {
    const std::string found = noThrow(where, find);
    return noThrow(where, [&]() -> std::string {
        return found.empty() && defaultValue != nullptr ? defaultValue : found;
    });
}

}  // namespace

FsConfig::~FsConfig() = default;

int FsConfig_TAV::getError() const {
    return TavCfg::getError();
}

std::string FsConfig_TAV::getErrorText() const {
    return TavCfg::getErrorText();
}

std::string FsConfig_TAV::getString(const char* section, const char* key,
                                    const char* defaultValue) const {
    return textOr(defaultValue, "FsConfig_TAV::getString", [&]() -> std::string {
        return static_cast<const char*>(TavCfg::getKey((std::string(section) + "." + key).c_str()));
    });
}

int FsConfig_TAV::getInteger(const char* section, const char* key, int defaultValue) const {
    return parseInteger(getString(section, key, nullptr), defaultValue);
}

struct FsSettings::State {
    TavCfg::Reading reading = TavCfg::read();
};

FsSettings::FsSettings() {
    noThrow("FsSettings::FsSettings", [this] { state_ = std::make_unique<State>(); });
}

FsSettings::~FsSettings() = default;

int FsSettings::getError() const {
    return state_ ? state_->reading.error : TavCfg::UNREADABLE;
}

std::string FsSettings::getErrorText() const {
    return state_ ? state_->reading.errorText : "out of memory";
}

std::string FsSettings::getString(const char* section, const char* key,
                                  const char* defaultValue) const {
    return textOr(defaultValue, "FsSettings::getString", [&]() -> std::string {
        if (!state_) return {};
        const auto& values = state_->reading.values;
        const auto found = values.find(std::string(section) + "." + key);
        return found != values.end() ? found->second : std::string();
    });
}

int FsSettings::getInteger(const char* section, const char* key, int defaultValue) const {
    return parseInteger(getString(section, key, nullptr), defaultValue);
}

}  // namespace fscanner

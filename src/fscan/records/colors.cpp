#include "fscan/records/colors.h"

#include <algorithm>
#include <cstdlib>

#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

bool isCode(std::string_view text) {
    return text.find_first_not_of("0123456789;") == text.npos &&
           text.find_first_not_of("0;") != text.npos;
}

}  // namespace

Colors::Colors() {
    const char* settings = std::getenv("LS_COLORS");
    read(settings != nullptr && *settings != 0 ? settings : "di=01;34:ln=01;36:ex=01;32:cd=01;33");
}

// "kind=codes:*ending=codes:..."
void Colors::read(std::string_view settings) {
    while (!settings.empty()) {
        const std::string_view setting = settings.substr(0, settings.find(':'));
        settings.remove_prefix(std::min(setting.size() + 1, settings.size()));
        const std::size_t equals = setting.find('=');
        if (equals == setting.npos || !isCode(setting.substr(equals + 1))) continue;
        const std::string name(setting.substr(0, equals));
        const std::string code(setting.substr(equals + 1));
        if (name.starts_with('*')) {
            endings_.emplace_back(name.substr(1), code);
        } else {
            kinds_[name] = code;
        }
    }
}

std::string_view Colors::kind(const std::string& name) const {
    const auto found = kinds_.find(name);
    return found == kinds_.end() ? std::string_view() : found->second;
}

std::string_view Colors::ofFile(const Match& match) const {
    using namespace fscanner;
    const unsigned attributes = match.facts.attributes;
    constexpr unsigned executable =
        FS_ATTR_OWNER_EXECUTE | FS_ATTR_GROUP_EXECUTE | FS_ATTR_OTHERS_EXECUTE;
    if ((attributes & FS_ATTR_SYMBOLIC_LINK) != 0) return kind("ln");
    if ((attributes & FS_ATTR_CHARACTER_DEVICE) != 0) return kind("cd");
    const bool runs = (attributes & executable) != 0 && !kind("ex").empty();
    if ((attributes & FS_ATTR_REGULAR_FILE) != 0 && runs) return kind("ex");
    // The last setting counts.
    const auto ending = std::find_if(endings_.rbegin(), endings_.rend(), [&](const auto& setting) {
        return match.name().ends_with(setting.first);
    });
    return ending != endings_.rend() ? std::string_view(ending->second) : kind("fi");
}

}  // namespace fscan

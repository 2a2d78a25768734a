#include "fscan/text/path_glob.h"

#include <filesystem>

namespace fscan {

bool matchesAnywhere(std::string_view glob) {
    const std::string_view first = glob.substr(0, glob.find('/'));
    return !glob.starts_with('/') && first != "." && first != "..";
}

std::optional<std::string> wholePathGlob(std::string_view glob) {
    if (glob.starts_with('/') || glob.starts_with('*')) return std::string(glob);
    if (matchesAnywhere(glob)) return "*/" + std::string(glob);
    std::error_code error;
    const std::filesystem::path here = std::filesystem::current_path(error);
    if (error) return std::nullopt;
    return (here / glob).native();
}

}  // namespace fscan

#include "fscan/text/absolute_path.h"

#include <filesystem>

namespace fscan {

std::string absolutePath(std::string_view path) {
    if (path.starts_with('/')) return std::string(path);
    std::error_code error;
    static const std::filesystem::path here = std::filesystem::current_path(error);
    while (path.starts_with("./")) path.remove_prefix(2);
    return (here / path).native();
}

}  // namespace fscan

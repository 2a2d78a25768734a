#include "fscan/text/paths.h"

#include <filesystem>

namespace fscan {

std::string absolutePath(std::string_view path) {
    if (path.starts_with('/')) return std::string(path);
    std::error_code error;
    static const std::filesystem::path here = std::filesystem::current_path(error);
    while (path.starts_with("./")) path.remove_prefix(2);
    return (here / path).native();
}

bool liesIn(std::wstring_view path, std::wstring_view directory) {
    if (!path.starts_with(directory)) return false;
    return path.size() == directory.size() || directory == L"/" || path[directory.size()] == L'/';
}

std::wstring joinedPath(std::wstring_view directory, std::wstring_view name) {
    std::wstring path(directory);
    if (!path.ends_with(L'/')) path += L'/';
    return path.append(name);
}

std::wstring_view withoutFinalSlash(std::wstring_view path) {
    if (path.size() > 1 && path.ends_with(L'/')) path.remove_suffix(1);
    return path;
}

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

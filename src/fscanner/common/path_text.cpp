#include "fscanner/common/path_text.h"

namespace fscanner {

namespace {

/// Both without a final separator, so that the root is the empty text.
bool isBelow(std::wstring_view path, std::wstring_view directory) {
    return path.size() > directory.size() && path.starts_with(directory) &&
           path[directory.size()] == L'/';
}

}  // namespace

std::wstring joinPath(std::wstring_view directory, std::wstring_view name) {
    std::wstring path;
    path.reserve(directory.size() + 1 + name.size());
    path += directory;
    endWithSeparator(path);
    return path += name;
}

std::wstring lastName(std::wstring_view path) {
    return std::wstring(path.substr(path.rfind(L'/') + 1));
}

std::size_t componentCount(std::wstring_view path) {
    std::size_t count = 0;
    wchar_t previous = L'/';
    for (const wchar_t c : path) {
        if (c != L'/' && previous == L'/') ++count;
        previous = c;
    }
    return count;
}

PathRelation relatePaths(std::wstring_view path, std::wstring_view other) {
    path = withoutFinalSeparator(path);
    other = withoutFinalSeparator(other);
    if (path == other) return PathRelation::SAME;
    if (isBelow(path, other)) return PathRelation::INSIDE;
    return isBelow(other, path) ? PathRelation::AROUND : PathRelation::APART;
}

bool isWithin(std::wstring_view path, std::wstring_view directory) {
    const PathRelation relation = relatePaths(path, directory);
    return relation == PathRelation::SAME || relation == PathRelation::INSIDE;
}

}  // namespace fscanner

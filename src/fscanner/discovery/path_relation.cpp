#include "fscanner/discovery/path_relation.h"

namespace fscanner {

namespace {

/// Both without a final separator, so that the root is the empty text.
bool isBelow(std::wstring_view path, std::wstring_view directory) {
    return path.size() > directory.size() && path.starts_with(directory) &&
           path[directory.size()] == L'/';
}

}  // namespace

std::wstring_view withoutFinalSeparator(std::wstring_view path) {
    if (path.ends_with(L'/')) path.remove_suffix(1);
    return path;
}

PathRelation relatePaths(std::wstring_view path, std::wstring_view other) {
    path = withoutFinalSeparator(path);
    other = withoutFinalSeparator(other);
    if (path == other) return PathRelation::SAME;
    if (isBelow(path, other)) return PathRelation::INSIDE;
    return isBelow(other, path) ? PathRelation::AROUND : PathRelation::APART;
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

}  // namespace fscanner

#include "fscanner/engine/tree_changes.h"

#include <algorithm>

#include "fscanner/common/path_text.h"

namespace fscanner {

namespace {

constexpr unsigned kEntryActions =
    FS_EVENT_CREATED | FS_EVENT_DELETED | FS_EVENT_MOVED_FROM | FS_EVENT_MOVED_TO;

std::wstring_view parentOf(std::wstring_view path) {
    return path.substr(0, std::max<std::size_t>(path.rfind(L'/'), 1));
}

}  // namespace

// A directory that came may hold anything: what was below one of its name is known under the names
// of now. Other permissions may open or close all that is below a directory.
void ChangeSet::add(const FS_Event& event) {
    const wchar_t* const entry = event.getEntry();
    if (!entry || entry[0] != L'/') return;
    const std::wstring_view path = entry;
    const unsigned action = event.getAction();
    constexpr unsigned opened = FS_EVENT_CREATED | FS_EVENT_MOVED_TO | FS_EVENT_ATTRIBUTES;
    unsigned what = 0;
    if (action & kEntryActions) what |= ChangedDirectory::names;
    if (action & FS_EVENT_DIRECTORY) {
        if (action & opened) add(path, ChangedDirectory::below);
    } else if (action & (FS_EVENT_WRITTEN | FS_EVENT_ATTRIBUTES)) {
        what |= ChangedDirectory::facts;
    }
    if (what != 0) add(parentOf(path), what);
}

void ChangeSet::add(std::wstring_view path, unsigned what) {
    key_ = path;
    changes_[key_] |= what;
}

void ChangeSet::add(const ChangeSet& others) {
    for (const auto& [path, what] : others.changes_) changes_[path] |= what;
}

std::vector<ChangedDirectory> ChangeSet::within(std::wstring_view path) const {
    std::vector<ChangedDirectory> found;
    ChangedDirectory self{std::wstring(path), 0};
    for (const auto& [directory, what] : changes_) {
        if (directory == path)
            self.what |= what;
        else if (isWithin(directory, path))
            found.push_back({directory, what});
        else if (isWithin(path, directory))
            self.what |= what & ChangedDirectory::below;
    }
    if (self.what != 0) found.push_back(std::move(self));
    std::sort(found.begin(), found.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    return found;
}

bool ChangeSet::hasBeside(std::wstring_view path, unsigned what) const {
    return std::any_of(changes_.begin(), changes_.end(), [&](const auto& change) {
        return (change.second & what) != 0 && change.first != path;
    });
}

}  // namespace fscanner

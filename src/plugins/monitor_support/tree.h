#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "monitor_support/descriptor.h"

namespace fscanner::monitor {

/// Tells a mount from others, as far as the kernel can: since Linux 6.8 for ever, before while it
/// is mounted, and before Linux 5.8 only by its file system.
struct MountId {
    std::uint64_t number = 0;
    std::uint64_t device = 0;
    bool operator==(const MountId&) const = default;
};

/// The mount that an entry of `directory` is seen through, which is not that of the directory if
/// another file system, or another part of this one, is mounted there. No name: of `directory`
/// itself. False, with errno, on failure.
bool readMount(const Descriptor& directory, const char* name, MountId& mount);

/// A directory that shall be watched, as it was when it was opened.
struct Tree {
    std::string path;  ///< absolute, without a slash at the end but for "/"
    Descriptor directory;
    MountId mount;
};

/// Opens the directory of the tree at `path` with O_PATH. 0, or an errno with the `problem` in
/// plain words: no directory, or a path that holds a link.
int openTree(const wchar_t* path, Tree& tree, std::wstring& problem);

/// The path of a host as the monitors keep it; empty if it cannot be converted.
std::string treePath(const wchar_t* path);

/// Whether `path` is `tree` or lies below it.
bool isInside(std::string_view tree, std::string_view path);

/// The path of the entry `name` of `directory`.
std::string joined(std::string_view directory, std::string_view name);

/// Sets `problem` to `text` as wide text, and returns `error`.
int refuse(int error, const std::string& text, std::wstring& problem);

/// The path that leads to an open file. Empty, with errno, on failure, also if it is too long.
std::string pathOf(const Descriptor& file);

}  // namespace fscanner::monitor

#pragma once

#include <algorithm>
#include <vector>

#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset.h"
#include "support/temporary_directory.h"

namespace fscanner {

/// Ages of a cache's trees that a query accepts, in seconds.
inline constexpr unsigned kDay = 86400;
inline constexpr unsigned kAllOld = 0U - 10;  // a limit in the future: every tree is too old
/// A time limit in milliseconds that no test reaches.
inline constexpr unsigned kMinute = 60000;

/// A temporary directory with verbs for building a tree in it.
class TempTree {
public:
    TempTree() : TempTree(memoryDirectory()) {}
    explicit TempTree(const std::filesystem::path& parent) : directory_(parent) {}

    std::string path(const std::string& below = "") const {
        return below.empty() ? root_.string() : (root_ / below).string();
    }
    std::wstring wide(const std::string& below = "") const { return toWide(path(below)); }
    void file(const std::string& below, std::size_t size = 0) const {
        std::filesystem::create_directories((root_ / below).parent_path());
        std::ofstream(root_ / below) << std::string(size, 'x');
    }
    void directory(const std::string& below) const {
        std::filesystem::create_directories(root_ / below);
    }
    void link(const std::string& target, const std::string& below) const {
        std::filesystem::create_symlink(target, root_ / below);
    }

private:
    TemporaryDirectory directory_;
    std::filesystem::path root_ = std::filesystem::canonical(directory_.path());
};

/// Keeps what a scan writes, as paths in bytes, in the order of arrival.
class CollectingWriter : public FsResultSetWriter {
public:
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long, unsigned) override {
        add(path, name);
        return 0;
    }
    int addRecord(const FsFileInfo& record) override {
        add(record.getPath(), record.getName());
        records.push_back(record);
        return 0;
    }
    int close() override { return 0; }

    std::vector<std::string> sorted() const {
        std::vector<std::string> copy = paths;
        std::sort(copy.begin(), copy.end());
        return copy;
    }

    std::vector<std::string> paths;
    std::vector<FsFileInfo> records;

private:
    void add(const wchar_t* path, const wchar_t* name) {
        paths.push_back(toMultibyte(std::wstring(path) + name));
    }
};

}  // namespace fscanner

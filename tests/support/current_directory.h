#pragma once

#include <filesystem>

namespace fscanner {

/// Makes a directory the current one until the end of the scope.
class CurrentDirectory {
public:
    explicit CurrentDirectory(const std::filesystem::path& path)
        : old_(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    CurrentDirectory(CurrentDirectory&&) = delete;
    ~CurrentDirectory() { std::filesystem::current_path(old_); }

private:
    std::filesystem::path old_;
};

}  // namespace fscanner

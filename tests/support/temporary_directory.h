#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace fscanner {

/// A new directory, which is deleted with all its content by the destructor.
class TemporaryDirectory {
public:
    TemporaryDirectory() : TemporaryDirectory(std::filesystem::temp_directory_path()) {}
    explicit TemporaryDirectory(const std::filesystem::path& parent) {
        std::string name = (parent / "fscanner_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp: " + name);
        path_ = name;
    }
    TemporaryDirectory(TemporaryDirectory&&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

/// A directory where syncing to disk is fast, if there is one.
inline std::filesystem::path memoryDirectory() {
    const std::filesystem::path memory = "/dev/shm";
    return ::access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
}

inline void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

/// Writes over a part of a file.
inline void overwriteFile(const std::string& path, std::size_t at, const std::string& bytes) {
    std::fstream out(path, std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(static_cast<std::streamoff>(at)).write(bytes.data(), std::ssize(bytes));
}

inline std::string readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace fscanner

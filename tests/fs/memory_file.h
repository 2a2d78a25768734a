#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_serializator_file.h"
#include "fscanner/platform/abstract_file.h"

namespace fscanner {

/// A file in memory with room for `room` bytes, which counts the calls to it.
class MemoryFile : public AbstractFile {
public:
    explicit MemoryFile(std::string content = {}, std::size_t limit = SIZE_MAX)
        : bytes(std::move(content)), room(limit) {}

    bool create() override { return true; }
    bool open() override { return true; }
    bool close() override { return closed = true; }
    unsigned read(void* buffer, unsigned count) override {
        largestRead = std::max(largestRead, count);
        const std::size_t moved = std::min<std::size_t>(count, bytes.size() - position);
        std::memcpy(buffer, bytes.data() + position, moved);
        position += moved;
        return static_cast<unsigned>(moved);
    }
    /// Appends.
    unsigned write(const void* buffer, unsigned count) override {
        const std::size_t moved = std::min<std::size_t>(count, room - bytes.size());
        bytes.append(static_cast<const char*>(buffer), moved);
        return static_cast<unsigned>(moved);
    }
    bool seek(long offset, int origin) override {
        const auto base = static_cast<long>(origin == SEEK_FROM_END ? bytes.size() : 0);
        position = static_cast<std::size_t>(base + offset);
        return true;
    }
    long tell() override { return static_cast<long>(position); }
    bool eof() override { return position >= bytes.size(); }
    bool size(unsigned*) override { return false; }

    std::string bytes;
    std::size_t room;
    std::size_t position = 0;
    unsigned largestRead = 0;
    bool closed = false;
};

inline std::string savedBytes(const FsFileInfo& record) {
    MemoryFile file;
    FsSerializator_OnFile out(&file, false);
    EXPECT_EQ(record.saveObject(out), 0);
    return file.bytes;
}

}  // namespace fscanner

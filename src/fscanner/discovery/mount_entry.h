#pragma once

#include <optional>
#include <string>

namespace fscanner {

/// One line of the mount table. Owns its texts, which are null until they are set.
class MountEntry {
public:
    MountEntry() = default;
    /// The flags are taken only when all three texts were there to be copied.
    MountEntry(const MountEntry& other);
    MountEntry(MountEntry&& other) noexcept = default;
    MountEntry& operator=(const MountEntry& other);
    MountEntry& operator=(MountEntry&& other) noexcept = default;
    ~MountEntry() = default;

    /// Replace one text by a copy. False, nothing changed, for null; false, and
    /// the whole entry is empty, when memory runs out.
    bool setDevName(const char* device);
    bool setMountDir(const char* directory);
    bool setFileSystemType(const char* type);
    void setDummy(bool dummy) { dummy_ = dummy; }
    void setRemote(bool remote) { remote_ = remote; }

    /// Owned by the entry, valid until the text is replaced.
    const char* getDevName() const { return pointer(device_); }
    const char* getMountDir() const { return pointer(directory_); }
    const char* getFileSystemType() const { return pointer(type_); }
    /// Only stands for what an automounter mounts there when it is opened.
    bool isDummy() const { return dummy_; }
    bool isRemote() const { return remote_; }

private:
    using Text = std::optional<std::string>;

    static const char* pointer(const Text& text) { return text ? text->c_str() : nullptr; }
    bool set(Text& text, const char* value);

    Text device_;
    Text directory_;
    Text type_;
    bool dummy_ = false;
    bool remote_ = false;
};

}  // namespace fscanner

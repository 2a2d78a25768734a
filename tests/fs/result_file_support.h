#pragma once

#include <vector>

#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset_file.h"
#include "fscanner/fs/temp_files.h"
#include "support/temporary_directory.h"

namespace fscanner {

/// A directory of its own in which all temporary result files are made.
class ResultDirectory {
public:
    ResultDirectory() : saved_(tempNameSource()) {
        prefix() = directory_ / "results";
        count() = 0;
        tempNameSource().libraryName = [](char*) -> char* {
            static std::string name;
            name = prefix() + std::to_string(count()++);
            return name.data();
        };
    }
    ~ResultDirectory() { tempNameSource() = saved_; }

    std::string operator/(const std::string& name) const { return directory_ / name; }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path()))
            names.push_back(entry.path().string());
        return names;
    }
    /// The only file that is there.
    std::string file() const {
        const auto names = files();
        return names.size() == 1 ? names[0] : "not one file: " + std::to_string(names.size());
    }

private:
    static std::string& prefix() {
        static std::string text;
        return text;
    }
    static int& count() {
        static int number = 0;
        return number;
    }
    TemporaryDirectory directory_;
    TempNameSource saved_;
};

/// Not `writeWholeFile`: overwriting makes some file systems write to disk at once.
inline void replaceFile(const std::string& path, const std::string& bytes) {
    std::filesystem::remove(path);
    writeWholeFile(path, bytes);
}

/// The names that the reader still has.
inline std::wstring namesLeft(FsResultSetReader& reader) {
    std::wstring names;
    for (FsFileInfo record; reader.getNext(record);)
        names += record.getName() != nullptr ? record.getName() : L"(null)";
    return names;
}

}  // namespace fscanner

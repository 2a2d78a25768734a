#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/engine/cache_tables.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/file_processor.h"
#include "fscanner/expr/conditions.h"

/// What a criteria reads of a cache: its commands, and the stored fields of files and directories.
namespace fscanner {

/// The criteria command "path": the path of the directory with a given ID, joined with the
/// name. That directory is mostly the one of the current file.
class chPathCommand : public BinaryCmd {
public:
    chPathCommand(CacheStore& store, const DirectoryChain& current)
        : current_(current), other_(store) {}

    int execute(const ExpValue& directoryId, const ExpValue& name, ExpValue& result) override;

private:
    const DirectoryChain* find(unsigned id);

    const DirectoryChain& current_;
    DirectoryChain other_;
};

inline const DirectoryChain* chPathCommand::find(unsigned id) {
    if (current_.isAt(id)) return &current_;
    return other_.isAt(id) || other_.enter(id) ? &other_ : nullptr;
}

inline int chPathCommand::execute(const ExpValue& directoryId, const ExpValue& name,
                                  ExpValue& result) {
    if (name.getType() != STRING || name.text().empty()) {
        debug("chPathCommand::execute - args not valid!\n");
        return 1;
    }
    const DirectoryChain* const directory =
        find(static_cast<unsigned>(directoryId.getNumericValue()));
    if (!directory) {
        debug("chPathCommand::execute - findPathById(...) failed!\n");
        return 1;
    }
    resetExpValue(STRING, result);
    result.setStringValue(joinPath(directory->path(), name.text()).c_str());
    return 0;
}

class chTypeCommand : public TypeCommand {
public:
    chTypeCommand() : TypeCommand("chTypeCommand") {}
};

/// Reads the name of a directory's record for conditions, which know it as that of a file. What
/// else they ask is left to the criteria.
class DirectoryReader {
public:
    explicit DirectoryReader(std::string_view name) : name_(name) {}

    bool read(unsigned field, Operand& operand) {
        operand = {};
        operand.text = {name_.data(), name_.size(), name_.size()};
        return field == FILES_FILENAME;
    }

private:
    std::string_view name_;
};

/// Reads the fields of a decoded file for conditions.
class FileReader {
public:
    FileReader(const RecordSet& file, DynamicBuffer<unsigned char>& name)
        : file_(file), name_(name) {}

    bool read(unsigned field, Operand& operand) {
        operand = {};
        if (field == FILES_FILENAME) return readName(operand.text);
        operand.number = field == FILES_SIZE ? static_cast<long long>(file_.getFieldAsInt64(field))
                                             : file_.getFieldAsInt32(field);
        return true;
    }

private:
    bool readName(StoredText& name) {
        if (stringToUTF8(name_, file_.getFieldAsString(FILES_FILENAME)) == 0) return false;
        const auto* const text = reinterpret_cast<const char*>(name_.data());
        const std::size_t size = std::strlen(text);
        name = {text, size, size};
        return true;
    }

    const RecordSet& file_;
    DynamicBuffer<unsigned char>& name_;
};

}  // namespace fscanner

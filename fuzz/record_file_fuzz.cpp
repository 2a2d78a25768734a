// A result file of any bytes: it is read to its end, and sorting keeps every record
// that could be read, in order.

#include <unistd.h>

#include <vector>

#include "fs/result_file_support.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/fs/result_record_io.h"
#include "fuzz.h"

namespace {

using namespace fscanner;
using Compare = bool (*)(void*, void*, unsigned, bool);

std::vector<FsFileInfo> readAll(FsResultSetReader& reader) {
    std::vector<FsFileInfo> records;
    reader.moveFirst();
    for (FsFileInfo record; reader.getNext(record);) records.push_back(record);
    return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryDirectory directory(memoryDirectory());
    constexpr Compare compare[] = {fs_compare_path, fs_compare_file, fs_compare_pathname,
                                   fs_compare_size};
    Input input(data, size);
    const unsigned key = input.byte() % 4, direction = 1 + input.byte() % 2;
    const bool caseSensitive = input.byte() % 2 == 0;
    replaceFile(directory / "results", std::string(input.rest()));

    FsResultSetReader_OnFile reader((directory / "results").c_str());
    std::vector<FsFileInfo> before = readAll(reader);
    reader.moveFirst();
    require(reader.sort(key + 1, direction, caseSensitive) == 1);
    std::vector<FsFileInfo> after = readAll(reader);
    require(before.size() == after.size());
    const unsigned op = direction == 1 ? COMPARE_LESS_EQUAL : COMPARE_GREATER_EQUAL;
    for (std::size_t i = 1; i < after.size(); ++i) {
        const bool texts = after[i - 1].getPath() && after[i - 1].getName() && after[i].getPath() &&
                           after[i].getName();
        require(!texts || compare[key](&after[i - 1], &after[i], op, caseSensitive));
    }
    return 0;
}

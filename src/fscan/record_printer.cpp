#include "record_printer.h"

#include <fmt/format.h>

#include <ctime>

#include "fscanner/fs/fs_fileinfo.h"
#include "options.h"
#include "output.h"

namespace fscan {

namespace {

char typeLetter(unsigned attributes) {
    if ((attributes & fscanner::FS_ATTR_SYMBOLIC_LINK) != 0) return 'l';
    if ((attributes & fscanner::FS_ATTR_DIRECTORY) != 0) return 'd';
    if ((attributes & fscanner::FS_ATTR_REGULAR_FILE) != 0) return '-';
    return (attributes & fscanner::FS_ATTR_CHARACTER_DEVICE) != 0 ? 'c' : '?';
}

std::string timeText(std::time_t seconds) {
    std::tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) return "?";
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts));
}

std::string longText(const FileFacts& file) {
    return fmt::format("{} {:12} {:16} ", attributeText(file.attributes), file.size,
                       file.known ? timeText(file.modified) : "-");
}

}  // namespace

RecordPrinter::RecordPrinter(const Options& options, Output& out)
    : out_(out),
      long_(options.longFormat),
      countOnly_(options.countOnly),
      terminator_(options.nullTerminated ? '\0' : '\n') {}

bool RecordPrinter::take(const Match& match) {
    ++count_;
    if (countOnly_) return true;
    if (long_) out_.write(longText(match.facts));
    out_.writeForeign(match.path);
    out_.write({&terminator_, 1});
    out_.endRecord();
    return out_.error() == 0;
}

void RecordPrinter::finish() {
    if (countOnly_) out_.write(fmt::format("{}\n", count_));
}

std::string attributeText(unsigned attributes) {
    std::string text(1, typeLetter(attributes));
    // The nine permission bits follow each other, the owner's reading first.
    for (unsigned i = 0; i < 9; ++i)
        text += (attributes & fscanner::FS_ATTR_OWNER_READ << i) != 0 ? "rwx"[i % 3] : '-';
    return text;
}

}  // namespace fscan

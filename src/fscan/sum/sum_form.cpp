#include "fscan/sum/sum_form.h"

#include <fmt/format.h>
#include <langinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <string>
#include <string_view>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/records/path_text.h"
#include "fscan/text/json_text.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"

namespace fscan {

namespace {

// ---- For people -------------------------------------------------------------

constexpr std::size_t kBarInPipe = 20;
constexpr std::size_t kLongestBar = 60;
constexpr std::size_t kShortestBar = 4;

/// The columns of a terminal that the text takes.
std::size_t widthOf(const std::string& text) {
    std::size_t width = 0;
    for (const wchar_t c : toWide(escaped(text)))
        width += static_cast<std::size_t>(std::max(wcwidth(c), 0));
    return width;
}

std::string totalText(const SumTable& table) {
    std::string text = "total";
    if (table.groups.size() < table.groupCount)
        text += fmt::format(" of {} groups", table.groupCount);
    return text + fmt::format(", {} bytes{}", table.measure, table.cached ? " in the cache" : "");
}

/// Lines of bytes, share, files, a bar and the name.
class Lines {
public:
    Lines(const SumTable& table, const Options& options, Output& out)
        : table_(table),
          out_(out),
          exact_(options.exactSizes),
          colors_(wantsColors(options, out.isTerminal())),
          utf8_(std::string_view(nl_langinfo(CODESET)) == "UTF-8"),
          sizeWidth_(sizeOf(table.total.bytes).size()),
          filesWidth_(std::to_string(table.total.files).size()) {
        for (const Group& group : table.groups)
            sizeWidth_ = std::max(sizeWidth_, sizeOf(group.sum.bytes).size());
        if (!table.groups.empty()) most_ = table.groups.front().sum.bytes;
        barRoom_ = out.isTerminal() ? roomForBar() : kBarInPipe;
    }

    void write(const Sum& sum, std::string_view name, bool isTotal) {
        out_.write(fmt::format("{:>{}}  {:>6}  {:>{}}  ", sizeOf(sum.bytes), sizeWidth_,
                               share(sum, isTotal), sum.files, filesWidth_));
        if (barRoom_ > 0) writeBar(isTotal ? 0 : sum.bytes);
        isTotal ? out_.write(name) : out_.writeForeign(name);
        out_.write("\n");
        out_.endRecord();
    }

private:
    std::string sizeOf(unsigned long long bytes) const {
        return exact_ ? std::to_string(bytes) : sizeText(bytes);
    }
    std::string share(const Sum& sum, bool isTotal) const {
        return isTotal ? "100.0%" : fmt::format("{:.1f}%", 100 * table_.shareOf(sum));
    }
    /// What the longest line leaves of the terminal's width.
    std::size_t roomForBar() const {
        std::size_t others = sizeWidth_ + filesWidth_ + 14;  // with the share and the gaps
        std::size_t name = 0;
        for (const Group& group : table_.groups) name = std::max(name, widthOf(group.name));
        name = std::max(name, totalText(table_).size());
        const auto columns = static_cast<std::size_t>(terminalColumns(STDOUT_FILENO));
        if (columns < others + kShortestBar) return 0;
        const std::size_t left = columns - others;
        return std::clamp(left - std::min(name, left), kShortestBar, kLongestBar);
    }
    void writeBar(unsigned long long bytes) {
        const double part =
            most_ == 0 ? 0 : static_cast<double>(bytes) / static_cast<double>(most_);
        const auto length =
            static_cast<std::size_t>(std::lround(part * static_cast<double>(barRoom_)));
        std::string bar;
        for (std::size_t i = 0; i < length; ++i) bar += utf8_ ? "█" : "#";
        if (colors_ && length > 0) bar = "\x1B[36m" + bar + "\x1B[0m";
        out_.write(bar + std::string(barRoom_ - length + 2, ' '));
    }

    const SumTable& table_;
    Output& out_;
    bool exact_;
    bool colors_;
    bool utf8_;
    std::size_t sizeWidth_;
    std::size_t filesWidth_;
    std::size_t barRoom_ = 0;
    unsigned long long most_ = 0;
};

void printLines(const SumTable& table, const Options& options, Output& out) {
    Lines lines(table, options, out);
    for (const Group& group : table.groups) lines.write(group.sum, group.name, false);
    lines.write(table.total, totalText(table), true);
}

// ---- For programs -----------------------------------------------------------

Json objectOf(const SumTable& table, const Group& group) {
    Json object;
    object["by"] = wordOf(table.by);
    putBytes(object, "group", group.name);
    object["files"] = group.sum.files;
    object["bytes"] = group.sum.bytes;
    object["share"] = table.shareOf(group.sum);
    return object;
}

Json totalOf(const SumTable& table) {
    return {{"by", wordOf(table.by)},     {"total", true},
            {"groups", table.groupCount}, {"files", table.total.files},
            {"bytes", table.total.bytes}, {"measure", table.measure},
            {"cached", table.cached}};
}

void printJson(const SumTable& table, bool array, Output& out) {
    if (array) out.write("[\n");
    for (const Group& group : table.groups) {
        out.writeForeign(jsonText(objectOf(table, group)));
        out.write(array ? ",\n" : "\n");
    }
    out.write(jsonText(totalOf(table)));
    out.write(array ? "\n]\n" : "\n");
}

void printCsv(const SumTable& table, Output& out) {
    out.write("row,group,files,bytes,share\r\n");
    for (const Group& group : table.groups) {
        out.write("group,");
        out.writeForeign(csvText(group.name));
        out.write(fmt::format(",{},{},{:.6f}\r\n", group.sum.files, group.sum.bytes,
                              table.shareOf(group.sum)));
    }
    out.write(fmt::format("total,,{},{},1\r\n", table.total.files, table.total.bytes));
}

}  // namespace

const char* wordOf(SumBy by) {
    switch (by) {
        case SumBy::extension:
            return "ext";
        case SumBy::directory:
            return "dir";
        case SumBy::owner:
            return "owner";
        case SumBy::kind:
            return "kind";
        case SumBy::age:
            return "age";
        default:
            return "size";
    }
}

void printSums(const SumTable& table, const Options& options, Output& out) {
    switch (options.form) {
        case OutputForm::json:
        case OutputForm::jsonArray:
            return printJson(table, options.form == OutputForm::jsonArray, out);
        case OutputForm::csv:
            return printCsv(table, out);
        default:
            return printLines(table, options, out);
    }
}

}  // namespace fscan

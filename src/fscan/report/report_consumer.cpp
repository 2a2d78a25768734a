#include "fscan/report/report_consumer.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>
#include <unordered_map>
#include <utility>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/output/replaced_file.h"
#include "fscan/process/interruption.h"
#include "fscan/report/page.h"
#include "fscan/text/json_text.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"

namespace fscan {

namespace {

// What a browser still shows at once, in a page of a few MiB.
constexpr std::size_t kMostDirectories = 20'000;
constexpr std::size_t kMostFiles = 200;
constexpr std::size_t kMostGroups = 25;

bool isLarger(const auto& a, const auto& b) {
    return a.bytes != b.bytes ? a.bytes > b.bytes : a.path < b.path;
}

/// Nothing in the text can end the script element that holds it.
std::string forScript(const std::string& json) {
    std::string text;
    for (const char c : json)
        if (c == '<' || c == '>' || c == '&')
            text += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        else
            text += c;
    return text;
}

std::string nonce() {
    std::array<unsigned char, 16> bytes{};
    (void)!::getrandom(bytes.data(), bytes.size(), 0);
    std::string text;
    for (const unsigned char byte : bytes) text += fmt::format("{:02x}", byte);
    return text;
}

void replaceAll(std::string& text, std::string_view what, std::string_view by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size())
        text.replace(at, what.size(), by);
}

Json rowsOf(const Sums& sums) {
    Json rows = Json::array();
    for (const Group& group : sums.largest(kMostGroups))
        rows.push_back({escaped(group.name), group.sum.bytes, group.sum.files});
    return rows;
}

/// The directories as rows of the parent's row, name, bytes and files. The largest are there with
/// all that hold them, since those are as large, and come first; the first row is all together.
Json treeOf(const std::vector<std::string>& roots, const Sums& sums, const Sum& total) {
    const bool oneRoot = roots.size() == 1;
    Json rows = Json::array();
    rows.push_back({0, oneRoot ? escaped(roots.front()) : "all", total.bytes, total.files});
    const std::vector<Group> directories = sums.largest(kMostDirectories);
    std::unordered_map<std::string_view, std::size_t> rowOf;
    for (const Group& directory : directories) {
        const std::string_view path = directory.name;
        const std::size_t slash = path.rfind('/');
        const auto parent =
            rowOf.find(slash == path.npos ? "" : path.substr(0, std::max<std::size_t>(slash, 1)));
        const bool isTop = parent == rowOf.end();
        const std::string_view name = isTop && !oneRoot ? path : path.substr(slash + 1);
        rowOf[path] = rows.size();
        rows.push_back(
            {isTop ? 0 : parent->second, escaped(name), directory.sum.bytes, directory.sum.files});
    }
    return rows;
}

}  // namespace

ReportConsumer::ReportConsumer(const Options& options, std::vector<std::string> roots, bool cached)
    : MatchConsumer(std::nullopt),
      options_(options),
      roots_(std::move(roots)),
      count_(options, cached),
      directories_(roots_, std::numeric_limits<unsigned>::max()) {
    using Titled = std::pair<SumBy, const char*>;
    for (const auto& [by, title] :
         {Titled{SumBy::extension, "By ending"}, Titled{SumBy::age, "By age of the last change"},
          Titled{SumBy::kind, "By kind"}, Titled{SumBy::size, "By size"},
          Titled{SumBy::owner, "By owner"}})
        groups_.push_back({title, Grouping(by), {}});
}

bool ReportConsumer::lacks(const FileDetails& file) const {
    return count_.lacks(file) ||
           std::any_of(groups_.begin(), groups_.end(),
                       [&](const Groups& one) { return one.grouping.lacks(file); });
}

bool ReportConsumer::consume(const Match& match) {
    const FileDetails& file = *match.details;
    const unsigned long long bytes = count_.bytesOf(file);
    total_.add(bytes);
    directories_.add(match, bytes);
    for (Groups& one : groups_) one.sums.of(one.grouping.groupOf(match, file)).add(bytes);
    if (!match.isDirectory()) keepLargest(match, bytes);
    return !Interruption::pending();
}

void ReportConsumer::keepLargest(const Match& match, unsigned long long bytes) {
    const auto larger = [](const File& a, const File& b) { return isLarger(a, b); };
    if (largest_.size() == kMostFiles) {
        if (bytes <= largest_.front().bytes) return;
        std::pop_heap(largest_.begin(), largest_.end(), larger);
        largest_.pop_back();
    }
    largest_.push_back({bytes, std::string(match.path)});
    std::push_heap(largest_.begin(), largest_.end(), larger);
}

std::string ReportConsumer::missingText() const {
    std::string text;
    if (missed_ > 0)
        text = fmt::format("Not everything is in it: {} could not be searched. ",
                           missed_ == 1 ? "a directory" : fmt::format("{} directories", missed_));
    if (count_.usedCache())
        text += "Sizes are those of the cache, and a file with several links counts with each. ";
    return text;
}

std::string ReportConsumer::data() const {
    Json paths = Json::array();
    for (const std::string& root : roots_) paths.push_back(escaped(absolutePath(root)));
    Json sums = Json::array();
    for (const Groups& one : groups_)
        sums.push_back({{"title", one.title}, {"groups", rowsOf(one.sums)}});
    std::vector<File> files = largest_;
    std::sort(files.begin(), files.end(),
              [](const File& a, const File& b) { return isLarger(a, b); });
    Json largest = Json::array();
    for (const File& file : files) largest.push_back({escaped(file.path), file.bytes});
    return forScript(jsonText({{"paths", paths},
                               {"time", momentText(std::time(nullptr))},
                               {"measure", fmt::format("{} bytes", count_.measure())},
                               {"missing", missingText()},
                               {"directories", treeOf(roots_, directories_.sums(), total_)},
                               {"sums", sums},
                               {"largest", largest}}));
}

std::string ReportConsumer::page() const {
    std::string text = kReportPage;
    replaceAll(text, "{NONCE}", nonce());
    replaceAll(text, "{DATA}", data());
    return text;
}

void ReportConsumer::finish() {
    const std::string& file = *options_.report;
    const int error = replaceFile(file, page());
    failed_ = error != 0;
    if (failed_) complain(fmt::format("--report: {}: {}", escaped(file), std::strerror(error)));
    count_.tell(options_.quiet);
}

}  // namespace fscan

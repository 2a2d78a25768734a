#include "fscan/screen/interactive.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/screen/file_view.h"
#include "fscan/screen/result_list.h"
#include "fscan/screen/screen.h"
#include "fscan/screen/search_process.h"
#include "fscan/screen/typed_query.h"
#include "fscan/search/search.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"

// Each search is a process of its own. Two run at the start: one shows what the cache has, and the
// other one brings the cache up to date, so that the first one is then asked again. What is typed
// later is answered by the cache as it is.

namespace fscan {

namespace {

using Clock = std::chrono::steady_clock;
using Arguments = std::vector<std::string>;

// While results come, the screen is drawn so often.
constexpr std::chrono::milliseconds kFrame{30};
constexpr int kWideEnough = 64;  // for sizes and times beside the paths
constexpr int kRowsOfPreview = 8;

struct Order {
    const char* name;
    Arguments arguments;
};
const std::array<Order, 4>& orders() {
    static const std::array<Order, 4> all{{{"as found", {}},
                                           {"by path", {"--sort", "pathname"}},
                                           {"largest first", {"--sort", "size", "--reverse"}},
                                           {"newest first", {"--sort", "modified", "--reverse"}}}};
    return all;
}

class Interactive {
public:
    explicit Interactive(const Options& options)
        : options_(options), input_(toWide(options.pattern.value_or(""))), place_(input_.size()) {}

    /// False if nothing was chosen.
    bool run();
    /// Those that are marked, or the one under the cursor.
    Arguments chosen() const;

private:
    bool take(const Input& key);
    bool edit(const Input& key);
    void moveInList(Key key);
    void erase(std::size_t from, std::size_t to);
    void wait();
    void search();
    bool narrow(const TypedQuery& typed);
    void check();
    void takeResults();
    void takeCheck();
    Arguments argumentsFor(const Arguments& typed) const;
    bool keepsCache() const { return !options_.provider; }

    void draw();
    int drawProblem(int row);
    void drawInput();
    void drawList(int top, int bottom);
    void drawRow(int row, const std::string& path, bool chosen);
    void drawPreview(int top, int bottom);
    std::string status() const;

    const Options& options_;
    Screen screen_;
    std::wstring input_;
    std::size_t place_;  // of the cursor in it
    TypedQuery typed_;
    std::optional<TypedQuery> answered_;  // by the results, as a whole and in this order
    TypedError wrong_;
    std::string problem_;
    std::size_t order_ = 0;
    bool preview_ = false;

    ResultList results_;
    SearchProcess search_;
    bool fresh_ = false;  // the results of the search have not replaced those before
    Clock::time_point begun_;
    std::chrono::duration<double> took_{};
    SearchProcess check_;
    std::optional<Clock::time_point> checked_;
    bool drawn_ = false;
    Clock::time_point drawnAt_;
};

// ---- Searches ---------------------------------------------------------------

Arguments Interactive::argumentsFor(const Arguments& typed) const {
    Arguments all = options_.optionArguments;
    all.insert(all.end(), typed.begin(), typed.end());
    all.insert(all.end(), {"-q", "--"});
    all.insert(all.end(), options_.paths.begin(), options_.paths.end());
    return all;
}

void Interactive::search() {
    problem_.clear();
    wrong_ = {};
    const std::optional<TypedQuery> typed = readTyped(toBytes(input_), wrong_);
    if (!typed) return search_.stop();
    if (narrow(*typed)) return;
    answered_.reset();
    typed_ = *typed;
    Arguments arguments = typed_.arguments;
    const auto isKind = [](const std::string& one) { return one.starts_with("--type="); };
    if (options_.kindsWereLeft && std::none_of(arguments.begin(), arguments.end(), isKind))
        for (const char* kind : {"f", "d", "l", "p", "s", "b", "c"})
            arguments.insert(arguments.end(), {"-t", kind});
    const Arguments& sort = orders()[order_].arguments;
    arguments.insert(arguments.end(), sort.begin(), sort.end());
    arguments.emplace_back("-0");
    if (keepsCache()) arguments.insert(arguments.end(), {"--max-age", "1d"});
    begun_ = Clock::now();
    fresh_ = true;
    if (!search_.start(argumentsFor(arguments))) problem_ = "a search cannot be started";
}

// A longer word mostly asks for a part of an answer that is there as a whole.
bool Interactive::narrow(const TypedQuery& typed) {
    const bool whole = results_.found() == results_.paths().size();
    if (!answered_ || !whole || !typed.narrows(*answered_)) return false;
    begun_ = Clock::now();
    results_.keep([&typed](const std::string& path) { return typed.admitsAll(path); });
    took_ = Clock::now() - begun_;
    answered_ = typed;
    return true;
}

void Interactive::check() {
    if (keepsCache() && !check_.running()) (void)check_.start(argumentsFor({"-c"}));
}

void Interactive::takeResults() {
    const auto replace = [this] {
        if (std::exchange(fresh_, false)) results_.clear();
    };
    const auto add = [this, &replace](std::string_view path) {
        replace();
        if (typed_.admits(path)) results_.add(path);
    };
    if (search_.takeOutput(add)) return;
    while (search_.messages() >= 0 && search_.takeMessages()) {
        pollfd more{search_.messages(), POLLIN, 0};
        ::poll(&more, 1, -1);
    }
    constexpr int kNothing = 1;
    const int status = search_.finish();
    took_ = Clock::now() - begun_;
    replace();
    if (status > kNothing) problem_ = search_.said();
    if (status == 0 || status == kNothing) answered_ = typed_;
    drawn_ = false;
}

// Nobody reads the number that it counts.
void Interactive::takeCheck() {
    if (check_.takeOutput([](std::string_view) {})) return;
    const int status = check_.finish();
    check_.stop();
    if (status == 0 || status == 1) checked_ = Clock::now();
    answered_.reset();
    search();
}

void Interactive::wait() {
    const bool streams = search_.output() >= 0;
    std::array<pollfd, 5> polls{{{screen_.descriptor(), POLLIN, 0},
                                 {search_.output(), POLLIN, 0},
                                 {search_.messages(), POLLIN, 0},
                                 {check_.output(), POLLIN, 0},
                                 {check_.messages(), POLLIN, 0}}};
    const auto frame = static_cast<int>(kFrame.count());
    constexpr int kSecond = 1000;  // the age of what is shown
    const int ready = ::poll(polls.data(), polls.size(), streams || !drawn_ ? frame : kSecond);
    if (ready < 0) return;
    if (ready == 0 && !streams) drawn_ = false;
    if (polls[1].revents != 0) takeResults();
    if (polls[2].revents != 0 && search_.messages() >= 0) search_.takeMessages();
    if (polls[4].revents != 0) check_.takeMessages();
    if (polls[3].revents != 0) takeCheck();
}

// ---- Keys -------------------------------------------------------------------

bool Interactive::run() {
    if (!screen_) return false;
    search();
    check();
    for (;;) {
        for (Input key = screen_.read(); key.key != Key::none; key = screen_.read()) {
            if (key.key == Key::accept) return results_.current() != nullptr;
            if (key.key == Key::cancel) return false;
            const bool changed = take(key);
            drawn_ = false;
            if (changed) search();
        }
        const bool whole = results_.paths().size() >= results_.height() || !search_.running();
        const bool due = Clock::now() - drawnAt_ >= kFrame;
        if ((!drawn_ && (whole || due)) || (search_.running() && due)) draw();
        wait();
    }
}

// Whether another search is to be run.
bool Interactive::take(const Input& key) {
    switch (key.key) {
        case Key::mark:
            results_.toggleMark();
            results_.move(1);
            return false;
        case Key::sort:
            order_ = (order_ + 1) % orders().size();
            answered_.reset();
            return true;
        case Key::refresh:
            check();
            return false;
        case Key::preview:
            preview_ = !preview_;
            return false;
        case Key::suspend:
            screen_.suspend();
            return false;
        case Key::up:
        case Key::down:
        case Key::pageUp:
        case Key::pageDown:
            moveInList(key.key);
            return false;
        default:
            return edit(key);
    }
}

void Interactive::moveInList(Key key) {
    const long page = static_cast<long>(results_.height());
    results_.move(key == Key::up ? -1 : key == Key::down ? 1 : key == Key::pageUp ? -page : page);
}

void Interactive::erase(std::size_t from, std::size_t to) {
    input_.erase(from, to - from);
    place_ = from;
}

bool Interactive::edit(const Input& key) {
    const std::wstring before = input_;
    switch (key.key) {
        case Key::text:
            input_.insert(place_++, 1, key.character);
            break;
        case Key::erase:
            if (place_ > 0) erase(place_ - 1, place_);
            break;
        case Key::deleteNext:
            if (place_ < input_.size()) erase(place_, place_ + 1);
            break;
        case Key::eraseAll:
            erase(0, input_.size());
            break;
        case Key::eraseWord: {
            std::size_t from = place_;
            while (from > 0 && input_[from - 1] == L' ') --from;
            while (from > 0 && input_[from - 1] != L' ') --from;
            erase(from, place_);
            break;
        }
        case Key::left:
            place_ -= place_ > 0 ? 1 : 0;
            break;
        case Key::right:
            place_ = std::min(place_ + 1, input_.size());
            break;
        case Key::home:
            place_ = 0;
            break;
        case Key::end:
            place_ = input_.size();
            break;
        default:
            break;
    }
    return input_ != before;
}

Arguments Interactive::chosen() const {
    Arguments paths(results_.marks().begin(), results_.marks().end());
    if (paths.empty() && results_.current()) paths.push_back(*results_.current());
    return paths;
}

// ---- The screen -------------------------------------------------------------

std::string Interactive::status() const {
    std::string text = fmt::format("{} found", results_.found());
    if (results_.found() > results_.paths().size())
        text += fmt::format(", the first {} listed", results_.paths().size());
    text += search_.running() ? ", searching" : fmt::format(" in {:.2f} s", took_.count());
    if (check_.running()) {
        text += ", checking the cache";
    } else if (checked_) {
        const auto age = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *checked_);
        text += ", as of " + durationText(static_cast<unsigned long long>(age.count())) + " ago";
    }
    if (!results_.marks().empty()) text += fmt::format(", {} marked", results_.marks().size());
    return text + ", " + orders()[order_].name;
}

void Interactive::draw() {
    drawn_ = true;
    drawnAt_ = Clock::now();
    const int rows = screen_.rows();
    const int previewRows = preview_ && rows >= 12 ? std::min(kRowsOfPreview, rows / 2) : 0;
    const int bottom = rows - 1 - previewRows;  // the last row is for keys
    screen_.clear();
    const int top = drawProblem(1);
    if (top == 1) screen_.put(1, 0, status(), Style::dim);
    results_.setHeight(static_cast<std::size_t>(std::max(bottom - std::max(top, 2), 1)));
    drawList(std::max(top, 2), bottom);
    if (previewRows > 0) drawPreview(bottom, rows - 1);
    screen_.put(rows - 1, 0,
                screen_.columns() >= kWideEnough
                    ? "Enter takes  Tab marks  ^S sorts  ^T shows text  ^R checks  Esc leaves"
                    : "Enter Tab:mark ^S:sort ^T:text Esc",
                Style::dim);
    drawInput();
    screen_.show();
}

// The caret of a criteria is in the text. Returns the row below.
int Interactive::drawProblem(int row) {
    if (!wrong_.message.empty())
        screen_.put(row++, 2, std::string(wrong_.at, ' ') + "^ " + wrong_.message, Style::wrong);
    std::string_view rest = problem_;
    for (int lines = 0; !rest.empty() && lines < 3; ++lines) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        screen_.put(row++, 0, line, Style::wrong);
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return row;
}

void Interactive::drawInput() {
    const int prompt = screen_.put(0, 0, "> ", Style::bold);
    // The end of a long line is what is typed.
    std::size_t first = 0;
    const int room = std::max(screen_.columns() - prompt - 2, 1);
    while (first < place_ &&
           widthOf(std::wstring_view(input_).substr(first, place_ - first)) > room)
        ++first;
    screen_.put(0, prompt, toBytes(std::wstring_view(input_).substr(first)));
    const int column = prompt + widthOf(std::wstring_view(input_).substr(first, place_ - first));
    screen_.setCursor(0, column);
}

void Interactive::drawList(int top, int bottom) {
    const auto& paths = results_.paths();
    for (int row = top; row < bottom; ++row) {
        const std::size_t index = results_.first() + static_cast<std::size_t>(row - top);
        if (index >= paths.size()) return;
        drawRow(row, paths[index], index == results_.cursor());
    }
}

void Interactive::drawRow(int row, const std::string& path, bool chosen) {
    const Style style = chosen ? Style::chosen : Style::plain;
    if (chosen) screen_.fill(row, 0, style);
    const FileRow file = describe(path);
    const bool marked = results_.isMarked(path);
    int column = screen_.put(row, 0, marked ? "*" : " ", marked && !chosen ? Style::bold : style);
    if (screen_.columns() >= kWideEnough)
        column =
            screen_.put(row, column,
                        fmt::format("{} {:>5} {:16} ", file.kind, file.size, file.modified), style);
    screen_.putEnd(row, column, path, style, screen_.columns() - 1 - column);
}

void Interactive::drawPreview(int top, int bottom) {
    const std::string* const path = results_.current();
    if (!path) return;
    screen_.fill(top, 0, Style::dim);
    screen_.putEnd(top, 0, *path, Style::bold, screen_.columns() - 1);
    int row = top + 1;
    for (const std::string& line : previewOf(*path, static_cast<std::size_t>(bottom - row)))
        if (row < bottom) screen_.put(row++, 0, line);
}

}  // namespace

ExitStatus runInteractive(const Options& options, Output& out) {
    if (!Screen::isThere()) {
        complain("--interactive needs a terminal that can be drawn on");
        return ExitStatus::usage;
    }
    Arguments chosen;
    {
        Interactive interactive(options);
        if (interactive.run()) chosen = interactive.chosen();
    }
    if (chosen.empty()) return ExitStatus::nothingFound;
    // What is typed can ask for other kinds than the options do.
    Options all = options;
    all.kinds = fscanner::FS_KINDS_ALL;
    return deliverPaths(all, chosen, out);
}

}  // namespace fscan

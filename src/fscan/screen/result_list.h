#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

/// The paths that a search found, of which the first ones are kept, with a cursor and marks.
class ResultList {
public:
    /// What one screen after the other is worth; more only count.
    static constexpr std::size_t kMost = 20'000;

    /// For another search. Marks stay.
    void clear();
    void add(std::string_view path);
    /// Leaves only these of the paths that are kept.
    void keep(const std::function<bool(const std::string& path)>& wanted);

    unsigned long long found() const { return found_; }
    const std::vector<std::string>& paths() const { return paths_; }

    /// Moves the cursor by so many rows, and what is shown with it.
    void move(long rows);
    void moveTo(std::size_t row);
    /// So many rows are shown.
    void setHeight(std::size_t rows);
    std::size_t cursor() const { return cursor_; }
    std::size_t first() const { return first_; }
    std::size_t height() const { return height_; }
    /// Null without a result.
    const std::string* current() const;

    void toggleMark();
    bool isMarked(const std::string& path) const { return marks_.contains(path); }
    const std::set<std::string>& marks() const { return marks_; }

private:
    void follow();

    std::vector<std::string> paths_;
    unsigned long long found_ = 0;
    std::set<std::string> marks_;
    std::size_t cursor_ = 0;
    std::size_t first_ = 0;
    std::size_t height_ = 1;
};

}  // namespace fscan

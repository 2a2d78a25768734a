#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

/// A search that runs as a process of its own, so that the next key can end it. It writes paths
/// that each end with NUL.
class SearchProcess {
public:
    using TakePath = std::function<void(std::string_view)>;

    SearchProcess() = default;
    SearchProcess(const SearchProcess&) = delete;
    SearchProcess& operator=(const SearchProcess&) = delete;
    /// Ends the search.
    ~SearchProcess() { stop(); }

    /// Runs fscan with these arguments. False if it cannot be started.
    bool start(const std::vector<std::string>& arguments);
    /// Ends the search, and waits for that.
    void stop();
    bool running() const { return process_ > 0; }

    /// Can be read when there is something to take; -1 when not.
    int output() const { return output_; }
    int messages() const { return messages_; }
    /// Takes what has come, up to some hundred KiB. False at the end.
    bool takeOutput(const TakePath& take);
    bool takeMessages();

    /// Waits for the end, after the end of the output. The exit status; negative after a signal.
    int finish();
    /// What it said.
    const std::string& said() const { return said_; }

private:
    void close();

    pid_t process_ = -1;
    int output_ = -1;
    int messages_ = -1;
    std::string rest_;  // the beginning of a path
    std::string said_;
};

}  // namespace fscan

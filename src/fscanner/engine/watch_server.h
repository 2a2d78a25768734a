#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "fscanner/engine/tree_changes.h"
#include "fscanner/engine/watch_protocol.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// Takes the questions of searches, and sends the answers, without waiting for anybody.
class WatchServer {
public:
    using Answer = std::function<std::optional<TreeChanges>(const WatchQuestion&)>;

    explicit WatchServer(Answer answer) : answer_(std::move(answer)) {}

    /// Begins to listen at the socket of the cache in `directory`. False, with errno, on failure.
    bool open(const std::wstring& directory);
    /// Can be read when there is something to do.
    int descriptor() const { return poll_.get(); }
    /// Does what there is to do. False if no more clients can be taken now, for lack of
    /// descriptors: then it is quiet about new ones until the next call.
    bool step();

private:
    struct Client {
        Descriptor socket;
        unsigned long long number = 0;  // those that came later have higher ones
        std::string in;
        std::string out;
    };

    bool accept();
    void dropOldest();
    void serve(int descriptor, unsigned events);
    bool read(Client& client);
    bool write(Client& client);
    bool listen(int operation, int descriptor, unsigned events);

    Answer answer_;
    Descriptor poll_;
    Descriptor socket_;
    std::map<int, Client> clients_;
    unsigned long long last_ = 0;
};

}  // namespace fscanner

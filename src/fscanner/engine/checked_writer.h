#pragma once

#include "fscanner/fs/fs_resultset.h"

namespace fscanner {

/// Passes records on and remembers whether one was refused, as by a full disk: an answer
/// with a hole in it is no success.
class CheckedWriter : public FsResultSetWriter {
public:
    explicit CheckedWriter(FsResultSetWriter& to) : to_(to) {}

    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override {
        return note(to_.addRecord(path, name, size, attributes));
    }
    int addRecord(const FsFileInfo& record) override { return note(to_.addRecord(record)); }
    int close() override { return to_.close(); }

    /// `status`, or the writer's own failure where that was a success.
    int resultOf(int status) const { return status == 0 ? failure_ : status; }

private:
    int note(int result) {
        if (result < 0) failure_ = result;
        return result;
    }

    FsResultSetWriter& to_;
    int failure_ = 0;
};

}  // namespace fscanner

#pragma once

#include <cstdio>
#include <memory>

#include "fscanner/common/heap_string.h"
#include "fscanner/platform/abstract_file.h"

namespace fscanner {

/// A file over a buffered stream. Without an open stream every operation fails,
/// a transfer moves nothing, and `eof()` is true.
class StdFile : public AbstractFile {
public:
    explicit StdFile(const wchar_t* name);
    ~StdFile() override;

    bool create() override;
    bool open() override;
    /// True whenever a stream was open, even if its last bytes could not be
    /// written: ask `transferFailed()`.
    bool close() override;
    unsigned int read(void* buffer, unsigned int count) override;
    unsigned int write(const void* buffer, unsigned int count) override;
    /// True for a known origin, even if the stream refuses the offset.
    bool seek(long offset, int origin) override;
    long tell() override;
    bool eof() override;
    bool size(unsigned int* out) override;

    /// Whether reading or writing met an error, a full disk for one, since the last
    /// `create` or `open`. Certain only after `close`: a stream writes late.
    bool transferFailed() const { return transferFailed_; }

private:
    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };

    bool openStream(bool emptied);

    std::unique_ptr<std::FILE, Close> stream_;
    HeapText name_;
    bool transferFailed_ = false;
};

}  // namespace fscanner

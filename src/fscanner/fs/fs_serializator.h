#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// Writes and reads strings and 32-bit integers. An error is sticky until
/// `reset()`: a save then does nothing and returns false, a load yields 0 or null.
class FSCANNER_EXPORT FsSerializator {
public:
    /// Null may be saved: it loads back as null.
    virtual bool saveString(const wchar_t* s) = 0;
    virtual bool saveInteger32(int v) = 0;
    virtual bool saveUnsigned32(unsigned int v) = 0;
    /// A new string, released with delete[]; null on failure or where none was saved.
    virtual wchar_t* loadString() = 0;
    virtual int loadInteger32() = 0;
    virtual unsigned int loadUnsigned32() = 0;
    /// 0, or -1 after a shortfall.
    virtual int getLastError() = 0;
    virtual void reset() = 0;
    // Last in slot order.
    virtual ~FsSerializator();
};

}  // namespace fscanner

#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// Writes and reads strings and 32-bit integers. An error is sticky: until `reset()`, every save
/// does nothing and returns false, and every load returns 0 or null. One thread at a time.
class FSCANNER_EXPORT FsSerializator {
public:
    /// Saves a text, or null, which loads as null. True on success.
    virtual bool saveString(const wchar_t* s) = 0;
    /// Save a number. True on success.
    virtual bool saveInteger32(int v) = 0;
    virtual bool saveUnsigned32(unsigned int v) = 0;
    /// Loads a text, which the caller releases with delete[]. Null on failure, or if null was
    /// saved.
    virtual wchar_t* loadString() = 0;
    /// Load a number; 0 on failure.
    virtual int loadInteger32() = 0;
    virtual unsigned int loadUnsigned32() = 0;
    /// 0, or -1 if a save or a load has failed.
    virtual int getLastError() = 0;
    /// Clears the error.
    virtual void reset() = 0;
    // Declared last: the order of the virtual functions is part of the binary interface.
    virtual ~FsSerializator();
};

}  // namespace fscanner

#pragma once

/// The shared helpers: matching, numbers and bits, strings and their encodings, time. This header
/// is the umbrella; each idea has a file of its own. Here are two that nothing else of the library
/// uses: a directory entry by name and type, and the boolean evaluator.

#include <string>
#include <utility>

#include "fscanner/common/numbers.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"

namespace fscanner {

/// A directory entry's name, which it owns, and its type code.
class FileInfo {
public:
    FileInfo(std::wstring entry, unsigned type) : entry_(std::move(entry)), type_(type) {}

    /// Valid as long as the object.
    const wchar_t* getEntry() const { return entry_.c_str(); }
    unsigned getType() const { return type_; }

private:
    std::wstring entry_;
    unsigned type_;
};

/// Evaluates boolean expressions over the characters "0" and "1":
/// exp = orExp; orExp = andExp { "|" andExp }; andExp = simpExp { "&" simpExp };
/// simpExp = "(" orExp ")" | "!" orExp | "0" | "1". No blanks, no short circuit.
/// "!" negates everything to its right: "!0|1" is false.
class Evaluator {
public:
    /// The value of `text`; false with `error()` set for null or bad text.
    bool execute(const wchar_t* text);
    bool error() const { return error_; }

private:
    void advance();
    bool exp();
    bool orExp();
    bool andExp();
    bool simpExp();

    int position_ = 0;
    wchar_t current_ = 0;
    const wchar_t* text_ = nullptr;
    bool error_ = false;
    int depth_ = 0;
};

}  // namespace fscanner

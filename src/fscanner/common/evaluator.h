#pragma once

namespace fscanner {

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

#include "fscanner/common/common.h"

namespace fscanner {

namespace {

// Nesting deeper than this is an error: it would cost the stack, not a match.
constexpr int maxDepth = 1000;

}  // namespace

bool Evaluator::execute(const wchar_t* text) {
    text_ = text;
    position_ = 0;
    depth_ = 0;
    current_ = 0;
    error_ = text == nullptr;
    if (error_) return false;
    advance();
    return exp();
}

// Reads the next character; at the terminator it stays there.
void Evaluator::advance() {
    current_ = text_[position_];
    if (current_ != 0) ++position_;
}

bool Evaluator::exp() {
    const bool value = orExp();
    if (current_ != 0) error_ = true;
    return !error_ && value;
}

bool Evaluator::orExp() {
    bool value = andExp();
    while (!error_ && current_ == L'|') {
        advance();
        const bool right = andExp();
        value = value || right;
    }
    return !error_ && value;
}

bool Evaluator::andExp() {
    bool value = simpExp();
    while (!error_ && current_ == L'&') {
        advance();
        const bool right = simpExp();
        value = value && right;
    }
    return !error_ && value;
}

bool Evaluator::simpExp() {
    const wchar_t c = current_;
    if (error_) return false;
    advance();
    if (c == L'0' || c == L'1') return c == L'1';
    error_ = (c != L'(' && c != L'!') || depth_ == maxDepth;
    if (error_) return false;

    ++depth_;
    bool value = orExp();
    --depth_;
    if (c == L'!') return !error_ && !value;
    if (current_ != L')') error_ = true;
    advance();
    return !error_ && value;
}

}  // namespace fscanner

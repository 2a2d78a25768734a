#pragma once

#include <clocale>
#include <string>

namespace fscanner {

/// Switches the process's locale, where it is installed, and back.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* name)
        : old_(std::setlocale(LC_ALL, nullptr)),
          available_(std::setlocale(LC_ALL, name) != nullptr) {}
    ScopedLocale(ScopedLocale&&) = delete;
    ~ScopedLocale() { std::setlocale(LC_ALL, old_.c_str()); }

    bool available() const { return available_; }

private:
    std::string old_;
    bool available_;
};

}  // namespace fscanner

#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

/// An option of a table, or none where the table leaves it out.
class AddedOption {
public:
    explicit AddedOption(CLI::Option* option = nullptr) : option_(option) {}
    AddedOption group(const char* name) const;
    AddedOption excludes(AddedOption other) const;
    /// Throws a CLI::ParseError if the table leaves out the other option: it was not given.
    AddedOption needs(AddedOption other) const;

private:
    CLI::Option* option_;
};

/// Tells CLI11 of options. They are added to an app, which must outlive the table.
///
/// CLI11 compares each option with all before it, which takes longer than many a search. A table
/// may thus be limited to the options that the arguments can name. Where it takes the arguments,
/// a table of all options takes them, too, and does the same. Where it refuses them, the table of
/// all options tells why.
class OptionTable {
public:
    /// A value is one text and is not interpreted by CLI11. It throws a CLI::ValidationError for a
    /// wrong one.
    using TakeText = std::function<void(const std::string&)>;

    /// A table of all options.
    explicit OptionTable(CLI::App& app) : app_(app) {}
    /// A table of the options that these arguments can name.
    OptionTable(CLI::App& app, const std::vector<std::string>& arguments);

    CLI::App& app() const { return app_; }
    bool isLimited() const { return limited_; }

    AddedOption addFlag(const char* flags, bool& given, const char* help);
    AddedOption addFlag(const char* flags, const std::function<void()>& take, const char* help);
    /// An option with a value, whose last use counts.
    AddedOption addValue(const char* flags, const char* type, const TakeText& take,
                         const char* help);
    /// An option that can be given several times, with one value each.
    AddedOption addTexts(const char* flags, const char* type, const TakeText& take,
                         const char* help);

private:
    bool leavesOut(std::string_view flags) const;

    CLI::App& app_;
    bool limited_ = false;
    std::string letters_;
    std::vector<std::string_view> names_;
};

}  // namespace fscan

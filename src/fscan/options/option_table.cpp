#include "fscan/options/option_table.h"

#include <algorithm>

namespace fscan {

AddedOption AddedOption::group(const char* name) const {
    if (option_ != nullptr) option_->group(name);
    return *this;
}

AddedOption AddedOption::excludes(AddedOption other) const {
    if (option_ != nullptr && other.option_ != nullptr) option_->excludes(other.option_);
    return *this;
}

AddedOption AddedOption::needs(AddedOption other) const {
    if (option_ == nullptr) return *this;
    if (other.option_ == nullptr) throw CLI::RequiresError(option_->get_name(), "another option");
    option_->needs(other.option_);
    return *this;
}

// An argument may be "--name=value" or several letters, and CLI11 reads "-i-name" as "-i --name".
// So each part behind a hyphen may be a name. Too many letters and names do no harm.
OptionTable::OptionTable(CLI::App& app, const std::vector<std::string>& arguments)
    : app_(app), limited_(true) {
    for (const std::string& argument : arguments) {
        if (!argument.starts_with('-')) continue;
        letters_ += argument;
        const std::string_view text = std::string_view(argument).substr(0, argument.find('='));
        for (std::size_t at = 0; at != text.npos; at = text.find('-', at + 1))
            names_.push_back(text.substr(at + 1));
    }
}

bool OptionTable::leavesOut(std::string_view flags) const {
    if (!limited_) return false;
    while (!flags.empty()) {
        const std::string_view flag = flags.substr(0, flags.find(','));
        flags.remove_prefix(std::min(flag.size() + 1, flags.size()));
        if (flag.starts_with("--")
                ? std::find(names_.begin(), names_.end(), flag.substr(2)) != names_.end()
                : letters_.find(flag[1]) != letters_.npos)
            return false;
    }
    return true;
}

AddedOption OptionTable::addFlag(const char* flags, bool& given, const char* help) {
    if (leavesOut(flags)) return AddedOption();
    return AddedOption(app_.add_flag(flags, given, help));
}

AddedOption OptionTable::addFlag(const char* flags, const std::function<void()>& take,
                                 const char* help) {
    if (leavesOut(flags)) return AddedOption();
    return AddedOption(app_.add_flag_function(
        flags, [take](auto) { take(); }, help));
}

// No conversion of CLI11 is used: it would read "{}" and "[a,b]" as lists.
AddedOption OptionTable::addValue(const char* flags, const char* type, const TakeText& take,
                                  const char* help) {
    if (leavesOut(flags)) return AddedOption();
    const auto takeOne = [take](const std::vector<std::string>& results) {
        take(results.front());
        return true;
    };
    return AddedOption(app_.add_option(flags, takeOne, help)->type_name(type));
}

AddedOption OptionTable::addTexts(const char* flags, const char* type, const TakeText& take,
                                  const char* help) {
    if (leavesOut(flags)) return AddedOption();
    const auto takeAll = [take](const std::vector<std::string>& results) {
        for (const std::string& text : results) take(text);
        return true;
    };
    return AddedOption(app_.add_option(flags, takeAll, help)
                           ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                           ->allow_extra_args(false)
                           ->type_name(type));
}

}  // namespace fscan

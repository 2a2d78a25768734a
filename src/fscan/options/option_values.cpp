#include "fscan/options/option_values.h"

#include "fscan/text/values.h"

namespace fscan {

// No conversion of CLI11 is used: it would read "{}" and "[a,b]" as lists.
CLI::Option* addValue(CLI::App& app, const std::string& flags, const std::string& type,
                      const TakeText& take, const std::string& help) {
    return app
        .add_option(
            flags,
            [take](const std::vector<std::string>& results) {
                take(results.front());
                return true;
            },
            help)
        ->type_name(type);
}

CLI::Option* addText(CLI::App& app, const std::string& flags, const std::string& type,
                     std::optional<std::string>& value, const std::string& help) {
    return addValue(
        app, flags, type, [&value](const std::string& text) { value = text; }, help);
}

CLI::Option* addTexts(CLI::App& app, const std::string& flags, const std::string& type,
                      const TakeText& take, const std::string& help) {
    return app
        .add_option(
            flags,
            [take](const std::vector<std::string>& results) {
                for (const std::string& text : results) take(text);
                return true;
            },
            help)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false)
        ->type_name(type);
}

CLI::Option* addTexts(CLI::App& app, const std::string& flags, const std::string& type,
                      std::vector<std::string>& values, const std::string& help) {
    return addTexts(
        app, flags, type, [&values](const std::string& text) { values.push_back(text); }, help);
}

CLI::Option* addDuration(CLI::App& app, const std::string& flag, unsigned least, unsigned limit,
                         const std::function<void(unsigned)>& take, const std::string& help) {
    return addValue(
        app, flag, "DURATION",
        [flag, least, limit, take](const std::string& text) {
            const std::optional<unsigned> seconds = parseDuration(text, limit);
            if (!seconds || *seconds < least)
                throw CLI::ValidationError(flag, "not a duration such as 90s, 10m, 2h, 1d");
            take(*seconds);
        },
        help);
}

CLI::Option* addSize(CLI::App& app, const std::string& flag,
                     std::optional<unsigned long long>& bytes, const std::string& help) {
    return addValue(
        app, flag, "SIZE",
        [flag, &bytes](const std::string& text) {
            bytes = parseSize(text);
            if (!bytes) throw CLI::ValidationError(flag, "not a size such as 4096, 10k, 5M, 2G");
        },
        help);
}

}  // namespace fscan

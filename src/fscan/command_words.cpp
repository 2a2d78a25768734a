#include "command_words.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "options.h"

namespace fscan {

namespace {

using Words = std::vector<std::string>;

CLI::ParseError wrong(const std::string& text) {
    return {text, CLI::ExitCodes::ExtrasError};
}

/// The words from `at` up to `end`, which it is set behind.
Words takeWords(Words::const_iterator& at, Words::const_iterator last, const std::string& option,
                const std::string& end) {
    const auto stop = std::find(at, last, end);
    if (stop == last) throw wrong(fmt::format("{} needs '{}' behind its command", option, end));
    if (stop == at) throw wrong(option + " needs a command");
    Words words(at, stop);
    at = stop + 1;
    return words;
}

}  // namespace

Words takeCommands(const Words& arguments, Options& options) {
    Words rest;
    for (auto at = arguments.begin(); at != arguments.end();) {
        if (*at == "--") {
            rest.insert(rest.end(), at, arguments.end());
            break;
        }
        const std::string argument = *at++;
        if (argument == "-e" || argument == "--exec") {
            options.command = takeWords(at, arguments.end(), argument, ";");
        } else if (argument == "--exec-batch") {
            options.batchCommand = takeWords(at, arguments.end(), argument, "+");
        } else {
            rest.push_back(argument);
        }
    }
    if (options.command && options.batchCommand)
        throw wrong("--exec and --exec-batch are not for one search");
    return rest;
}

}  // namespace fscan

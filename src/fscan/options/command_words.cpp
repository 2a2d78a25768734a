#include "fscan/options/command_words.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

#include "fscan/options/options.h"

namespace fscan {

namespace {

using Words = std::vector<std::string>;

const std::map<std::string, CommandUse> commandUses = {{"-e", CommandUse::forEach},
                                                       {"--exec", CommandUse::forEach},
                                                       {"--exec-batch", CommandUse::forMany},
                                                       {"--exec-dir", CommandUse::inDirectory}};

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
        const auto use = commandUses.find(argument);
        if (use == commandUses.end()) {
            rest.push_back(argument);
            continue;
        }
        if (options.command && options.commandUse != use->second)
            throw wrong("only one of --exec, --exec-batch, --exec-dir");
        options.commandUse = use->second;
        const char* const end = use->second == CommandUse::forMany ? "+" : ";";
        options.command = takeWords(at, arguments.end(), argument, end);
    }
    return rest;
}

}  // namespace fscan

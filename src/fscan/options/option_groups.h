#pragma once

namespace CLI {
class App;
}

/// The options of the command line, in the groups of the help. Each function adds the options
/// of one group; when they are parsed, they fill `options`.
namespace fscan {

struct Options;

// The search.
void addSelection(CLI::App& app, Options& options);
void addPlaces(CLI::App& app, Options& options);
void addProvider(CLI::App& app, Options& options);

// The output, and reports on standard error.
void addOutput(CLI::App& app, Options& options);
void addReports(CLI::App& app, Options& options);

// Tasks other than searching.
void addOthers(CLI::App& app, Options& options);

}  // namespace fscan

#pragma once

namespace CLI {
class App;
}

/// The options of the command line, in the groups in which the help shows them: each
/// function adds the options of one group, which fill `options` when they are parsed.
namespace fscan {

struct Options;

// What is searched, where, and how.
void addSelection(CLI::App& app, Options& options);
void addPlaces(CLI::App& app, Options& options);
void addProvider(CLI::App& app, Options& options);

// What becomes of the matches, and what is told besides.
void addOutput(CLI::App& app, Options& options);
void addReports(CLI::App& app, Options& options);

// What is done instead of searching.
void addOthers(CLI::App& app, Options& options);

}  // namespace fscan

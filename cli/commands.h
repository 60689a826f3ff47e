// The commands of marrow-cli: each registers its subcommand and options, and
// gives what runs once the command line is parsed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace marrow::cli {

struct Command {
  CLI::App* app;
  // Returns the process exit code; may throw CLI::ValidationError for an
  // argument the parser could not judge alone (exit code 2).
  std::function<int()> run;
};

Command AddInspect(CLI::App& app);
Command AddProps(CLI::App& app);
Command AddTree(CLI::App& app);
Command AddList(CLI::App& app);
Command AddExport(CLI::App& app);

// Rewrites the arguments of `export` so that every option has a fixed number
// of values: "--to include|exclude TEXT" (the To filter, not the output) and
// "--dates RANGE" (the mode left out) take their explicit forms.
void NormaliseExportArgs(std::vector<std::string>& args);

}  // namespace marrow::cli

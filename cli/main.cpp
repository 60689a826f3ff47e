// marrow-cli: the command-line front end over the session.
#include <algorithm>
#include <string>
#include <vector>

#include "cli/commands.h"

int main(int argc, char** argv) {
  CLI::App app{"Recovers and converts offline mail stores.", "marrow-cli"};
  app.require_subcommand(1);
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  const std::vector<marrow::cli::Command> commands = {marrow::cli::AddInspect(app), marrow::cli::AddProps(app),
                                                      marrow::cli::AddTree(app), marrow::cli::AddList(app),
                                                      marrow::cli::AddExport(app)};
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty() && args[0] == "export") marrow::cli::NormaliseExportArgs(args);
  std::reverse(args.begin(), args.end());  // CLI11 takes them last first
  try {
    app.parse(args);
    for (const marrow::cli::Command& command : commands) {
      if (command.app->parsed()) return command.run();
    }
  } catch (const CLI::ParseError& e) {
    // Help exits 0; any wrong argument exits 2.
    return app.exit(e) == 0 ? 0 : 2;
  }
  return 2;
}
